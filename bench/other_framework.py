"""The environment that holds the other framework, made when the comparison is asked for."""

import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).parent.parent
REQUIREMENTS = ROOT / "requirements" / "bench.txt"
FOLDER = ROOT / "build" / "bench-venv"
STAMP = FOLDER / "installed.txt"


def _python() -> Path:
    return FOLDER / ("Scripts/python.exe" if sys.platform == "win32" else "bin/python")


def environment() -> Path | None:
    """Its interpreter; None, told in one line, when the packages cannot be had."""
    wanted = REQUIREMENTS.read_text(encoding="utf-8")
    if not STAMP.exists() or STAMP.read_text(encoding="utf-8") != wanted:
        print(f"installing {REQUIREMENTS.name} into {FOLDER.relative_to(ROOT)}", file=sys.stderr)
        pip = [str(_python()), "-m", "pip", "install", "--quiet", "--disable-pip-version-check"]
        pip += ["--timeout", "20", "--retries", "1", "-r", str(REQUIREMENTS)]
        for command in ([sys.executable, "-m", "venv", "--clear", str(FOLDER)], pip):
            done = subprocess.run(command, capture_output=True, text=True, timeout=600, check=False)
            if done.returncode != 0:
                reason = (done.stderr.strip() or done.stdout.strip() or "no reason given").splitlines()[-1]
                print(f"OpenHTF is left out, it cannot be installed: {reason}", file=sys.stderr)
                return None
        STAMP.write_text(wanted, encoding="utf-8")
    return _python()
