"""Compiles the message catalogues; everything else is in pyproject.toml."""

from pathlib import Path

from babel.messages.mofile import write_mo
from babel.messages.pofile import read_po
from setuptools import setup
from setuptools.command.build_py import build_py

SOURCE = Path("src")


def compile_catalogues(target: Path) -> None:
    """Write one .mo under `target` for each .po under src/, at the same relative place."""
    for po in sorted(SOURCE.glob("*/locale/*/LC_MESSAGES/*.po")):
        mo = target / po.relative_to(SOURCE).with_suffix(".mo")
        mo.parent.mkdir(parents=True, exist_ok=True)
        with po.open("rb") as text, mo.open("wb") as binary:
            write_mo(binary, read_po(text, locale=po.parent.parent.name, abort_invalid=True))


class BuildPy(build_py):
    """Puts compiled catalogues into the wheel, or beside their sources for an editable install."""

    def run(self) -> None:
        super().run()
        compile_catalogues(SOURCE if self.editable_mode else Path(self.build_lib))


if __name__ == "__main__":
    setup(cmdclass={"build_py": BuildPy})
