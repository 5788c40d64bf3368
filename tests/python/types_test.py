import ast
import pathlib

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
    stub = ast.parse((FOLDER / "_core.pyi").read_text(encoding="utf-8")).body
    functions = {node.name: node for node in stub if isinstance(node, ast.FunctionDef)}
    for name, node in functions.items():
        signature = getattr(_core, name).__doc__.partition("\n")[0]
        real = ast.parse(f"def {signature}: ...").body[0]
        assert len(real.args.args) == len(node.args.args), name
    classes = {node.name for node in stub if isinstance(node, ast.ClassDef)}
    assert {*functions, *classes} == {name for name in dir(_core) if not name.startswith("_")}
