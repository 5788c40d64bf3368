"""The examples of the guide, run from the first to the last, and those of the docstrings."""

import doctest
import importlib
import inspect
import re
import shutil

import numpy
import pytest
from conftest import ESTIMATES, ROOT

import planex


@pytest.fixture(autouse=True)
def folder(tmp_path, monkeypatch):
    shutil.copy(ROOT / "examples/models/simulated_camera.json", tmp_path / "camera.json")
    monkeypatch.chdir(tmp_path)


def test_guide():
    guide = ROOT / "docs/python.md"
    text = guide.read_text(encoding="utf-8")
    names = {"__name__": "__main__"}
    for block in re.finditer("^```python\n(.*?)^```", text, re.DOTALL | re.MULTILINE):
        if "found" in block[1] and not ESTIMATES:
            continue
        line = text.count("\n", 0, block.start(1))
        exec(compile("\n" * line + block[1], guide, "exec"), names)
    assert "heights" in names


@pytest.mark.parametrize("name", ["files", "estimation", "functions", "heights", "lines",
                                  "model", "records"])
def test_docstrings_have_examples_that_run(name):
    if name == "estimation" and not ESTIMATES:
        pytest.skip("built without estimation")
    module = importlib.import_module(f"planex.{name}")
    for public in vars(planex).values():
        if getattr(public, "__module__", "") == module.__name__:
            assert ">>> " in inspect.getdoc(public), public
    outcome = doctest.testmod(module, extraglobs={"planex": planex, "np": numpy})
    assert outcome.failed == 0 and outcome.attempted > 3, "the report stands above"
