#!/usr/bin/python3
"""docs/troubleshooting.md against reality: the sentences in the sources, and what the real tool prints now.

Each line of a fenced block is one sentence, the line above the block names the speaker, and "…" replaces text that
varies. "(seen, 4.7 to 4.12)" names the versions of esptool that print a block; "(seen)" is every supported one. A run
compares the blocks of the version that it has. esptool 5 needs python3-rich-click as well.
"""

from __future__ import annotations

import ast
import fcntl
import os
import re
import select
import subprocess
import sys
import termios
import tty
import unittest
from pathlib import Path
from typing import Iterator, NamedTuple, Optional

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/device"))

import device_case  # noqa: E402
from device_case import PORT, PYTHON, run  # noqa: E402
from esptool_versions import LOCKS_THE_PORT, MODULES, installed_version  # noqa: E402

PAGE = ROOT / "docs/troubleshooting.md"
BUILD_COMMAND = ROOT / "BUILD-FULL-MAC.command"
ROOMS = ("app", "ui", "flashing", "release", "platform", "tools/pack-release")
# Here every text that is returned is one for the user.
FILES_OF_TEXTS = {"FlashTexts.h", "FlashTexts.cpp", "BootPorts.h", "BootPorts.cpp", "ReleaseTexts.cpp",
                  "WindowSelfTest.cpp"}

BLOCK = re.compile(r"\b(?P<who>program|tool|system|build command|packer) says(?: \((?P<mark>[^)\n]*)\))?[^\n]*:\n\n"
                   r"```\n(?P<lines>.*?)\n```$", re.MULTILINE | re.DOTALL)
SEEN = re.compile(r"seen(?:, (?P<first>[\d.]+)(?: to (?P<last>[\d.]+))?)?")

Version = tuple[int, ...]


def numbers(text: str) -> Version:
    return tuple(map(int, text.split(".")))


class Block(NamedTuple):
    who: str
    seen: Optional[tuple[Version, Version]]  # the first and the last version of the tool that prints it
    lines: list[str]

    def is_printed_by(self, version: Version) -> bool:
        if self.seen is None:
            return False
        first, last = self.seen
        return version[:len(first)] >= first and version[:len(last)] <= last


def versions_of(mark: str) -> Optional[tuple[Version, Version]]:
    if mark == "not tried":
        return None
    if not (seen := SEEN.fullmatch(mark)):
        raise ValueError(f"a sentence of the tool is either seen or not tried, and not ({mark})")
    first = seen["first"] or "4.5"
    return numbers(first), numbers(seen["last"] or seen["first"] or "4.12")


def blocks() -> list[Block]:
    return [Block(found["who"], versions_of(found["mark"] or "") if found["who"] == "tool" else None,
                  found["lines"].splitlines()) for found in BLOCK.finditer(PAGE.read_text())]


def matches(sentence: str, line: str) -> bool:
    return re.fullmatch(".*".join(map(re.escape, sentence.split("…"))), line) is not None


# ---- the sentences of the sources ----

TOKEN = re.compile(r'//[^\n]*|"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)\'')
# Masked literals, so that no comma or semicolon in a text is taken for the language's.
MASKED = re.compile("\ue000(\\d+)\ue001")
# Up to the end of the statement, but a definition's body is no argument.
CALL = re.compile(r"\b(throw [\w:]+|FlasherFailure|ManifestDecodingError|OptionError|fail|throwSystemError|throwLaunchError|"
                  r"writeToStandardError|setStatus|appendLog|runAlert)\((\{?[^;{]*)")
# What a function makes of the text that it is given.
WRAPPED = {"throwSystemError": "{} …: …", "throwLaunchError": "start …{}: …", "fail": "…{}…"}
RETURNED = re.compile(r"(?:\breturn|const char\* (?!deviceFolder)\w+ =)\s([^;]*)")
CHOSEN_AT_RUN_TIME = re.compile(r"\((?:[^()?]|\(\))*\?[^()]*\)|\.value_or\([^)]*\)")
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
    return matches(sentence, line) or matches("…: " + sentence, line)


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


# ---- the sentences of the tool ----

IMAGE = b"\0" + bytes(range(256)) * 200
IMAGE_OF_ANOTHER_CHIP = b"\xe9" + bytes(len(IMAGE))  # a header without segments, whose chip id is 0
BOOT_LOG = b"rst:0x15 (USB_UART_CHIP_RESET),boot:0x8 (SPI_FAST_FLASH_BOOT)\r\n"


class Tool(device_case.DeviceTest):
    def configure(self, *settings: str) -> None:
        """The tool's own seven attempts to connect differ in nothing but the time that they take."""
        (self.folder / "esptool.cfg").write_text("\n".join(("[esptool]", "connect_attempts = 1", *settings)))

    def flash_device(self, *options: str, image: bytes = IMAGE) -> str:
        device = self.device(*options)
        output = self.flash(image).stdout
        device.terminate()  # one that was unplugged ends by itself, so its status may be either
        device.wait(device_case.ONLY_WHEN_BROKEN)
        return output

    def terminal(self) -> tuple[int, int]:
        """A port without a device behind it."""
        master, slave = os.openpty()
        tty.setraw(slave)
        os.symlink(os.ttyname(slave), PORT)
        self.addCleanup(lambda: (os.close(master), os.close(slave)))
        return master, slave

    def flash_without_privileges(self) -> str:
        """Root may open everything, and so may a root who is one in its own namespace only."""
        few = ["setpriv", "--bounding-set", "-all", "--inh-caps", "-all"] if os.geteuid() == 0 else []
        return run(*few, *self.tool(IMAGE), **self.surroundings()).stdout

    def flash_with_denied_port(self) -> str:
        _, slave = self.terminal()
        os.fchmod(slave, 0)
        output = self.flash_without_privileges()
        os.unlink(PORT)
        return output

    def flash_with_busy_port(self) -> str:
        _, slave = self.terminal()
        fcntl.ioctl(slave, termios.TIOCEXCL)
        output = self.flash_without_privileges()
        os.unlink(PORT)
        return output

    def flash_with_locked_port(self) -> str:
        _, slave = self.terminal()
        fcntl.flock(slave, fcntl.LOCK_EX)
        output = self.flash(IMAGE).stdout
        os.unlink(PORT)
        return output

    def flash_with_null_port(self) -> str:
        os.symlink("null", PORT)
        output = self.flash(IMAGE).stdout
        os.unlink(PORT)
        return output

    def flash_firmware_that_runs(self) -> str:
        """Whatever reaches the port, its boot log comes back."""
        self.configure("reset_delay = 1")  # the tool looks for the log only once, after this time
        master, _ = self.terminal()
        output = b""
        with subprocess.Popen(self.tool(IMAGE), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              **self.surroundings()) as host:
            while True:
                ready = select.select([master, host.stdout], [], [])[0]
                if master in ready:
                    os.read(master, 4096)
                    os.write(master, BOOT_LOG)
                if host.stdout in ready:
                    said = os.read(host.stdout.fileno(), 4096)
                    if not said:
                        break
                    output += said
        os.unlink(PORT)
        self.configure()
        return output.decode()

    def version_without(self, module: str) -> str:
        """An interpreter without the modules of the system, but with another one of the tool."""
        other = "intelhex" if module == "serial" else "serial"
        modules = self.folder / f"without-{module}"
        modules.mkdir()
        found = run(PYTHON, "-c", f"import {other}; print({other}.__path__[0])").stdout.strip()
        (modules / other).symlink_to(found)
        tool = self.tool(IMAGE)[1]
        environment = os.environ | {"PYTHONPATH": str(modules), "PYTHONDONTWRITEBYTECODE": "1"}
        return run(PYTHON, "-S", tool, "version", env=environment).stdout

    def outputs(self, version: Version) -> dict[str, str]:
        self.configure()
        outputs = {f"no {module}": self.version_without(module) for module in self.of_the_tool(MODULES)}
        if version >= (5,):
            return outputs | {"any flash": self.flash(IMAGE).stdout}
        if self.of_the_tool(LOCKS_THE_PORT):
            outputs["port locked"] = self.flash_with_locked_port()
        return outputs | self.outputs_of_every_version()

    def outputs_of_every_version(self) -> dict[str, str]:
        return {
            "no such port": self.flash(IMAGE).stdout,
            "port of another kind": self.flash_with_null_port(),
            "port denied": self.flash_with_denied_port(),
            "port busy": self.flash_with_busy_port(),
            "silent device": self.flash_device("--fault", "never-answers"),
            "garbage": self.flash_device("--fault", "garbage"),
            "not in boot mode": self.flash_firmware_that_runs(),
            "another chip": self.flash_device("--fault", "other-chip"),
            "image of another chip": self.flash_device(image=IMAGE_OF_ANOTHER_CHIP),
            "unplugged": self.flash_device("--fault", "unplugged"),
            "stops before the first block": self.flash_device("--fault", "stops-answering@0"),
            "stops later": self.flash_device("--fault", "stops-answering"),
            "wrong bit": self.flash_device("--fault", "bit-error"),
            "nothing wrong": self.flash_device(),
        }

    # fault: the port is missing, denied, busy or no serial port; the tool lacks a module; the device's firmware runs;
    #     the image is for another chip
    def test_says_now_what_the_page_marks_as_seen(self) -> None:
        version = installed_version(device_case.home)
        seen = [block.lines for block in blocks() if block.is_printed_by(version)]

        def prints(output: str, wanted: list[str]) -> bool:
            lines = iter(output.splitlines())
            return all(any(matches(sentence, line) for line in lines) for sentence in wanted)

        outputs = self.outputs(version)
        for wanted in seen:
            with self.subTest("no case prints what the page marks as seen", wanted=wanted):
                self.assertTrue(any(prints(output, wanted) for output in outputs.values()))
        for case, output in outputs.items():
            with self.subTest("the page shows nothing of this case", case=case):
                self.assertTrue(any(prints(output, wanted) for wanted in seen), output)


if __name__ == "__main__":
    sys.exit(device_case.main())
