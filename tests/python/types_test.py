import ast
import pathlib
import re

import pytest

import planex
from planex import _core

FOLDER = pathlib.Path(planex.__file__).parent


def test_annotations_hold(tmp_path):
    checker = pytest.importorskip("mypy.api")
    report, trouble, status = checker.run(["--strict", "--cache-dir", str(tmp_path), str(FOLDER)])
    assert status == 0, report + trouble


def test_stub_has_the_arguments_of_the_extension():
    """stubtest sees no signatures of pybind11's functions; their first line has them."""
    stub = ast.parse((FOLDER / "_core.pyi").read_text(encoding="utf-8"))
    functions = {f.name: len(f.args.args) for f in stub.body if isinstance(f, ast.FunctionDef)}
    for name, count in functions.items():
        assert len(re.findall(r"\barg\d+:", getattr(_core, name).__doc__)) == count, name
    assert set(functions) | {"Model"} == {name for name in dir(_core) if not name.startswith("_")}
