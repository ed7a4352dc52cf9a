"""The README's Python example runs as written."""
import os
import re
from pathlib import Path

import cv2


def test_readme_example_runs(tmp_path, monkeypatch, capsys):
    readme = Path(os.environ.get("ZT_SOURCE_DIR", Path(__file__).parents[2])) / "README.md"
    section = readme.read_text().split("\n## Python\n", 1)[1]
    code = re.search(r"```python\n(.*?)```", section, re.S).group(1)
    monkeypatch.chdir(tmp_path)
    exec(compile(code, str(readme), "exec"), {})
    assert len(capsys.readouterr().out.splitlines()) == 10
    saved = cv2.imread("last-frame.png")
    assert saved is not None and saved.shape == (480, 640, 3)
