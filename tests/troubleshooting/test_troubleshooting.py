#!/usr/bin/python3
"""docs/troubleshooting.md against the sources: it mentions every sentence of program, packer and build command, and no
other one. The tests of the device compare its sentences of the flashing tool."""

from __future__ import annotations

import ast
import re
import sys
import unittest
from pathlib import Path
from typing import Iterator

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.help_page import blocks  # noqa: E402
from support.release_cases import says  # noqa: E402

BUILD_COMMAND = ROOT / "BUILD-FULL-MAC.command"
ROOMS = ("app", "ui", "flashing", "release", "platform", "tools/pack-release")
# Here every text that is returned is one for the user.
FILES_OF_TEXTS = {"FlashTexts.h", "BootPorts.h", "BootPorts.cpp", "ReleaseTexts.cpp", "WindowState.cpp",
                  "WindowCheck.cpp"}

TOKEN = re.compile(r'//[^\n]*|"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)\'')
# Masked literals, so that no comma or semicolon in a text is taken for the language's.
MASKED = re.compile("\ue000(\\d+)\ue001")
# Up to the end of the statement, but a definition's body is no argument.
CALL = re.compile(r"\b(throw [\w:]+|FlasherFailure|ManifestDecodingError|OptionError|fail|throwSystemError|throwLaunchError|"
                  r"writeToStandardError|withStatus|appendLog|runAlert)\((\{?[^;{]*)")
# What a function makes of the text that it is given.
WRAPPED = {"throwSystemError": "{} …: …", "throwLaunchError": "start …{}: …", "fail": "…{}…"}
RETURNED = re.compile(r"(?:\breturn|const char\* (?!deviceFolder)\w+ =)\s([^;]*)")
CHOSEN_AT_RUN_TIME = re.compile(r"\((?:[^()?]|\([^()]*\))*\?[^()]*\)|\.value_or\([^)]*\)")
TWO_WORDS = re.compile(r"[A-Za-z]\S* +\S*[A-Za-z]")
# Beginnings of texts that tell nobody that something went wrong: what the window always shows, help and reports of
# pack-release, and words for another program.
NO_MESSAGES = (
    "QELMO Varnox Flasher", "VARNOX  •", "Validating embedded release…", "Boot port", "Flash progress",
    "Reload the newest embedded build", "G0 BOOT MODE  //", "INTERNAL FLASH ONLY  •", "FLASH VERIFIED",
    "Puts a release, made from", "Status: 0 packed", "the application bundle", "the merged image", "name of the firmware",
    "version of the firmware", "device that the image", "serial speed", "flash clock", "what follows the writing",
    "words of the flash button", "write without erasing", "accept an image whose header", "sign the bundle ad hoc",
    "Sign it   the release was replaced", "--force --deep --sign -", "no release",
    "Signed    ad hoc", "%02X %02X", "cd /; read", "; last read")
BASH_SENTENCE = re.compile(r'\b(failed|usage) "((?:[^"$]|\$\w+|\$\([^)]*\))*)"')
BASH_VALUE = re.compile(r"\$\w+|\$\([^)]*\)")


def texts_of(expression: str, literals: list[str]) -> Iterator[str]:
    """Each argument and each alternative is a text of its own, and so is each line of it."""
    for part in re.split(r",|\?|(?<!:):(?!:)", CHOSEN_AT_RUN_TIME.sub("…", expression)):
        pieces = MASKED.split(part)
        pieces[1::2] = [literals[int(number)] for number in pieces[1::2]]
        # Between two literals, a value makes a gap; in front of the first and behind the last, only one that is added.
        pieces[::2] = ["…" if piece.strip(" \n+") and ("+" in piece or "…" in piece) else "" for piece in pieces[::2]]
        yield from (line.strip() for line in "".join(pieces).split("\n") if re.search(r"\w", line))


class Source:
    """One file's text, in which each literal is a mask with its number."""

    def __init__(self, name: str, text: str) -> None:
        self.name = name
        self.text = text
        self.literals: list[str] = []
        self.masked = TOKEN.sub(self.mask, text)

    def mask(self, token: re.Match[str]) -> str:
        if not token[0].startswith('"'):
            return ""
        self.literals.append(ast.literal_eval(token[0]))
        return f"\ue000{len(self.literals) - 1}\ue001"

    def sentences(self) -> Iterator[str]:
        """As the user sees them, of the calls that are known to show one."""
        for name, arguments in CALL.findall(self.masked):
            if name == "throwSystemError":
                arguments = arguments.split(",", 2)[1]  # the object behind it is a path
            for text in texts_of(arguments, self.literals):
                yield WRAPPED.get(name, "{}").format(text)
        if self.name in FILES_OF_TEXTS:
            for expression in RETURNED.findall(self.masked):
                if "&&" not in expression:  # a condition is no text
                    yield from texts_of(expression, self.literals)

    def texts(self) -> Iterator[str]:
        """Every literal of two words or more, wherever it is; adjacent ones are one."""
        for adjacent in re.findall("(?:\ue000\\d+\ue001\\s*)+", self.masked):
            text = "".join(self.literals[int(number)] for number in MASKED.findall(adjacent)).strip()
            if TWO_WORDS.search(text):
                yield text


def sources_of_program() -> Iterator[Source]:
    for room in ROOMS:
        for file in sorted((ROOT / room).iterdir()):
            if file.suffix in (".cpp", ".h"):
                yield Source(file.name, re.sub("^#include.*", "", file.read_text(), flags=re.MULTILINE))


def sentences_of_program() -> dict[str, str]:
    """Each with the file that it is in."""
    return {sentence: source.name for source in sources_of_program() for sentence in source.sentences()}


def sentences_of_build_command() -> dict[str, str]:
    sentences = {("failed, " if kind == "failed" else "") + BASH_VALUE.sub("…", text): BUILD_COMMAND.name
                 for kind, text in BASH_SENTENCE.findall(BUILD_COMMAND.read_text())}
    sentences.pop("failed, …", None)  # another program's words
    return sentences


def is_shown_as(line: str, sentence: str) -> bool:
    return says(line, sentence) or says(line, "…: " + sentence)


def lines_of(*speakers: str) -> list[str]:
    return [line for block in blocks() if block.who in speakers for line in block.lines]


def unmentioned(source: Source) -> list[str]:
    lines = lines_of("program", "packer")
    return ([text for text in source.texts() if not text.startswith(NO_MESSAGES)
             and not all(any(part in line for line in lines) for part in text.split("\n"))]
            + [text for text in source.sentences() if not any(is_shown_as(line, text) for line in lines)])


class Page(unittest.TestCase):
    maxDiff = None
    SPEAKERS = ((("program", "packer"), sentences_of_program), (("build command",), sentences_of_build_command))

    def test_mentions_every_sentence_of_the_sources(self) -> None:
        self.assertEqual([(source.name, text) for source in sources_of_program() for text in unmentioned(source)], [])
        texts = [text for source in sources_of_program() for text in source.texts()]
        self.assertEqual([begin for begin in NO_MESSAGES if not any(text.startswith(begin) for text in texts)], [])
        lines = lines_of("build command")
        self.assertEqual([sentence for sentence in sentences_of_build_command()
                          if not any(is_shown_as(line, sentence) for line in lines)], [])

    def test_notices_a_new_sentence_wherever_it_is(self) -> None:
        for source in sources_of_program():
            for new in ('throw std::runtime_error("The moon is full.");', 'throw FlasherFailure("Moonrise");',
                        'if (full) throw system_error(errno, category, "the moon is " + state);',
                        'const auto reason = isFull ? "the moon is full" : "";'):
                with self.subTest(source.name, new=new):
                    probe = Source(source.name, f"{source.text}\nvoid probe() {{\n    {new}\n}}\n")
                    self.assertTrue(any("oon" in text for text in unmentioned(probe)))

    def test_gives_the_program_no_sentence_that_is_in_no_source(self) -> None:
        for speakers, sentences in self.SPEAKERS:
            known = sentences()
            unknown = [line for line in lines_of(*speakers)
                       if not any(is_shown_as(line, sentence) for sentence in known)]
            self.assertEqual(unknown, [])


if __name__ == "__main__":
    unittest.main()
