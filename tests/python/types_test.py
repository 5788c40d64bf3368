import pathlib

import pytest

import planex


def test_annotations_hold(tmp_path):
    checker = pytest.importorskip("mypy.api")
    folder = str(pathlib.Path(planex.__file__).parent)
    report, trouble, status = checker.run(["--strict", "--cache-dir", str(tmp_path), folder])
    assert status == 0, report + trouble
