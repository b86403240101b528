#!/usr/bin/python3
"""docs/troubleshooting.md against the sources: it mentions the messages of the program, the packer and the build
command, and no others. The tests of the device check the messages of the flashing tool."""

from __future__ import annotations

import ast
import os
import re
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.help_page import blocks  # noqa: E402
from support.release_cases import says  # noqa: E402

FOLDERS = ("app", "ui", "flashing", "release", "platform", "tools/pack-release")
COMMENT = r'//[^\n]*|#include[^\n]*'
LITERAL = r'"(?:[^"\\\n]|\\.)*"'
# A comment, or literals that the compiler joins.
TOKEN = re.compile(rf"{COMMENT}|'(?:[^'\\\n]|\\.)'|{LITERAL}(?:\s*{LITERAL})*")
TWO_WORDS = re.compile(r"[A-Za-z]\S* +\S*[A-Za-z]")
# Starts of texts that report no problem: of the window, of pack-release's help and reports, and for other programs.
NO_MESSAGES = (
    "QELMO Varnox Flasher", "VARNOX  •", "Validating embedded release…", "Boot port", "Flash progress",
    "Reload the newest embedded build", "G0 BOOT MODE  //", "INTERNAL FLASH ONLY  •", "FLASH VERIFIED",
    "Makes a release from a merged image", "Exit status: 0 packed", "the application bundle", "the merged image",
    "name of the firmware", "version of the firmware", "device that the image", "serial speed", "flash clock",
    "what the chip does after flashing", "words of the flash button", "write without erasing",
    "accept an image whose header", "sign the bundle ad hoc", "Sign it   the release was replaced",
    "--force --deep --sign -", "no release", "Signed    ad hoc", "%02X %02X", "cd /; read", "; last read")
BASH_SENTENCE = re.compile(r'\b(failed|usage) "((?:[^"$]|\$\w+|\$\([^)]*\))*)"')
BASH_VALUE = re.compile(r"\$\w+|\$\([^)]*\)")


def literals_of_program() -> list[str]:
    files = [file for folder in FOLDERS for file in sorted((ROOT / folder).iterdir()) if file.suffix in (".cpp", ".h")]
    tokens = [token for file in files for token in TOKEN.findall(file.read_text())]
    return [ast.literal_eval(f"({token})") for token in tokens if token.startswith('"')]


def sentences_of_build_command() -> set[str]:
    text = (ROOT / "BUILD-FULL-MAC.command").read_text()
    sentences = {("failed, " if kind == "failed" else "") + BASH_VALUE.sub("…", text)
                 for kind, text in BASH_SENTENCE.findall(text)}
    return sentences - {"failed, …"}  # another program's words


def lines_of(*speakers: str) -> list[str]:
    return [line for block in blocks() if block.who in speakers for line in block.lines]


class Page(unittest.TestCase):
    maxDiff = None

    def test_mentions_every_text_of_the_program(self) -> None:
        lines = lines_of("program", "packer")
        texts = [text.strip() for text in literals_of_program() if TWO_WORDS.search(text)]
        self.assertEqual([text for text in texts if not text.startswith(NO_MESSAGES)
                          and not all(any(part in line for line in lines) for part in text.split("\n"))], [])
        self.assertEqual([begin for begin in NO_MESSAGES if not any(text.startswith(begin) for text in texts)], [])

    def test_attributes_to_the_program_only_sentences_from_its_sources(self) -> None:
        known = {line.strip() for text in literals_of_program() for line in text.split("\n")}
        parts = [text for text in known if re.search(r"\S +\S|\w[=:]$", text)] + list(map(os.strerror, range(1, 134)))
        self.assertEqual([line for line in lines_of("program", "packer")
                          if line.strip(" …") not in known and not any(part in line for part in parts)], [])

    def test_and_the_build_command_have_the_same_sentences(self) -> None:
        lines, sentences = lines_of("build command"), sentences_of_build_command()

        def is_shown_as(line: str, sentence: str) -> bool:
            return says(line, sentence) or says(line, "…: " + sentence)

        self.assertEqual([one for one in sentences if not any(is_shown_as(line, one) for line in lines)], [])
        self.assertEqual([line for line in lines if not any(is_shown_as(line, one) for one in sentences)], [])


if __name__ == "__main__":
    unittest.main()
