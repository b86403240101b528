#!/usr/bin/python3
"""The bill of materials: that of this build, and those of other builds."""

from __future__ import annotations

import json
import re
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import BUILD, BUNDLE, LIBRARIES, MANIFEST, PROGRAM, ROOT  # noqa: E402
from support.child import run  # noqa: E402

LINKED = ("dynamically linked", "header only")


def values(component: dict, name: str) -> list[str]:
    return [entry["value"] for entry in component["properties"] if entry["name"] == name]


class ThisBuild(unittest.TestCase):
    def setUp(self) -> None:
        self.bill = json.loads((BUILD / "QELMO-Varnox-Flasher.cdx.json").read_text())
        self.release, *self.components = self.bill["components"]

    def test_names_the_application_and_the_release_of_the_bundle_with_versions_and_digest(self) -> None:
        self.assertEqual((self.bill["bomFormat"], self.bill["specVersion"], self.bill["version"]),
                         ("CycloneDX", "1.5", 1))
        application = self.bill["metadata"]["component"]
        version = re.search(r"project\(\w+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
        self.assertEqual((application["name"], application["version"]), ("QELMO Varnox Flasher", version))
        manifest = json.loads((BUNDLE / MANIFEST).read_text())
        digest = [{"alg": "SHA-256", "content": manifest["binary"]["sha256"]}]
        self.assertEqual((self.release["type"], self.release["name"], self.release["version"], self.release["hashes"]),
                         ("firmware", manifest["name"], manifest["version"], digest))

    def test_refers_to_what_it_holds_only(self) -> None:
        references = ["application", *(component["bom-ref"] for component in self.bill["components"])]
        self.assertEqual(len(references), len(set(references)))
        for entry in self.bill["dependencies"]:
            self.assertLessEqual({entry["ref"], *entry["dependsOn"]}, set(references))

    def test_tells_of_each_dependency_how_it_is_used_and_the_licence_that_the_page_has(self) -> None:
        page = (ROOT / "docs" / "dependencies.md").read_text()
        for component in self.components:
            with self.subTest(component["name"]):
                [licence] = component["licenses"]
                words = licence.get("expression") or licence["license"].get("id") or licence["license"]["name"]
                rows = [line for line in page.splitlines() if line.startswith(f"| {component['name']} |")]
                self.assertEqual([words in row for row in rows], [True], words)
                if values(component, "qelmo:relationship")[0] in LINKED:
                    self.assertRegex(component["version"], r"^\d+\.\d+")
                    self.assertTrue(component["purl"].endswith("@" + component["version"]))
                else:
                    self.assertTrue(values(component, "qelmo:note"))

    def test_knows_every_library_that_the_built_programs_link(self) -> None:
        if "-fsanitize=" in (BUILD / "build.ninja").read_text():
            self.skipTest("a build with sanitizers links their libraries too")
        known = {name for component in self.components for name in values(component, "qelmo:library")}
        for program in [BUNDLE / PROGRAM, *BUNDLE.glob(f"{LIBRARIES}/libQelmoWindow.so")]:
            needed = re.findall(r"\(NEEDED\).*\[(.*?)\.so", run("readelf", "-d", program).stdout)
            self.assertTrue(needed)
            self.assertLessEqual(set(needed), known, program.name)


class WriteSbom(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.output = self.folder / "bill.json"
        (self.folder / "merged.bin").write_bytes(b"an image")
        self.command = [ROOT / "tools" / "write-sbom", "--version", "1.2.3", self.output, "--release-name=Varnox",
                        "--release-version=1.2.4", f"--release-image={self.folder}/merged.bin"]

    def written(self, *arguments: str) -> bytes:
        done = run(*self.command, *arguments)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return self.output.read_bytes()

    def test_writes_the_same_bytes_for_the_same_input_in_any_order_and_others_for_another(self) -> None:
        first = self.written("qt=6.4.2", "nlohmann-json=3.11.2", "--time", "1700000000")
        self.assertEqual(self.written("--time", "1700000000", "nlohmann-json=3.11.2", "qt=6.4.2"), first)
        first, other = json.loads(first), json.loads(self.written("qt=6.4.3", "nlohmann-json=3.11.2"))
        self.assertNotEqual(first["serialNumber"], other["serialNumber"])
        self.assertEqual(first["metadata"]["timestamp"], "2023-11-14T22:13:20Z")
        self.assertNotIn("timestamp", other["metadata"])

    def test_refuses_bad_input_in_one_line_and_writes_nothing(self) -> None:
        self.output.mkdir()
        unknown = "write-sbom: error: not a component and its version, or given twice: "
        for arguments, status, message in (
                *(([given], 2, unknown + given) for given in ("unheard-of=1", "qt", "esptool=4.7.0")),
                (["qt=6", "qt=6"], 2, unknown + "qt=6"),
                (["--time", "today"], 2, "write-sbom: error: not a number of seconds: today"),
                (["--release-image=/nowhere.bin"], 1, "write-sbom: /nowhere.bin: No such file or directory"),
                ([], 1, f"write-sbom: {self.output}: Is a directory")):
            with self.subTest(arguments):
                done = run(*self.command, *arguments)
                self.assertEqual((done.returncode, done.stderr.splitlines()[-1]), (status, message))
                self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["bill.json", "merged.bin"])
                self.assertEqual(list(self.output.iterdir()), [])


if __name__ == "__main__":
    unittest.main()
