"""The examples of the guide, run from the first to the last."""

import re
import shutil

from conftest import ROOT


def test_guide(tmp_path, monkeypatch):
    shutil.copy(ROOT / "examples/models/simulated_camera.json", tmp_path / "camera.json")
    monkeypatch.chdir(tmp_path)
    guide = ROOT / "docs/python.md"
    text = guide.read_text(encoding="utf-8")
    names = {}
    for block in re.finditer("^```python\n(.*?)^```", text, re.DOTALL | re.MULTILINE):
        line = text.count("\n", 0, block.start(1))
        exec(compile("\n" * line + block[1], guide, "exec"), names)
    assert "heights" in names
