"""Letters for the buttons of a box: underlined in the label, pressed with Alt."""

from typing import Any


def marked(text: str, spare: str, taken: set[str]) -> str:
    """Underline the first letter that is still free; a label without one, in Chinese say, gets one behind it."""
    for position, character in enumerate(text):
        if character.isascii() and character.isalpha() and character.upper() not in taken:
            taken.add(character.upper())
            return f"{plain(text[:position])}&{plain(text[position:])}"
    letter = next(each for each in spare + "ABCDEFGHIJKLMNOPQRSTUVWXYZ" if each not in taken)
    taken.add(letter)
    return f"{plain(text)} (&{letter})"


def plain(text: Any) -> str:
    return str(text).replace("&", "&&")


def letter_of(label: str) -> str:
    """The letter of a label that holds its mnemonic, "" without one."""
    return label.replace("&&", "").partition("&")[2][:1].upper()
