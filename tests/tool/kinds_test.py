#!/usr/bin/env python3
"""kinds, manual and completion from outside."""
import os
import re
import subprocess

from tool_case import ToolCase, main
from onnx_networks import Network

TOOLS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools")


class KindsTest(ToolCase):
    def rows(self, *arguments):
        out, _ = self.corvane("kinds", *arguments)
        rows = {}
        for line in out.splitlines()[2:]:
            found = re.match(r"(\S+(?:, fl -?\d+)?) +(\S+) +(\S+) +(\S+) +(\d+ changed|-)  (\S+)$", line)
            if found:
                rows[found[1]] = (float(found[2]), float(found[3]), float(found[4]), found[5], found[6])
        return rows, out

    def test_kinds_are_measured_against_float32(self):
        self.write("net.onnx", Network(4, [1, 3, 16, 16], [(3, 2, 24)]).bytes())
        self.corvane("pack", "net.onnx", "-o", "net.bin")
        _, err = self.corvane("info", "net.bin", status=None)
        if "simulator was built without" in err:
            self.skipTest("this simulated runtime does not execute ONNX models")
        for name in "a.png", "b.png", "c.png":
            self.picture(16, 16, name)
        common = ["--kind", "float32", "--pixel-type", "BGR2RGB", "a.png", "b.png", "c.png"]
        rows, out = self.rows("--model", "net.bin", "--means", "127.5,120,110", "--scales", "1/64", *common)
        fl = [int(name.split()[-1]) for name in rows if name.startswith("int16")]
        # (255 - 110) / 64 is the largest value: 2^13 times that is below 32768, 2^14 times it is not.
        self.assertEqual(fl, list(range(13, 2, -1)))
        self.assertEqual(set(rows), {"float16", "uint8"} | {"int16, fl %d" % n for n in fl})
        self.assertLess(rows["int16, fl 3"][1], rows["int16, fl 13"][1])
        self.assertLess(rows["int16, fl 13"][2], rows["int16, fl 3"][2] / 50)
        for mean, worst, largest, changed, picture in rows.values():
            self.assertTrue(worst <= mean <= 1 and largest >= 0 and picture in common and changed.endswith("changed"))
        self.assertIn("recommended besides float32: ", out)
        # The model's own normalisation counts as the settings' does.
        self.corvane("pack", "net.onnx", "-o", "own.bin", "--mean", "110,120,127.5", "--scale", "1/64")
        own, _ = self.rows("--model", "own.bin", *common)
        self.assertEqual(set(own), set(rows))
        for name, row in own.items():
            self.assertAlmostEqual(row[1], rows[name][1], delta=1e-5, msg=name)
        # Of a model that only the board can read, what its input takes is all there is.
        self.echo()
        self.picture()
        _, out = self.rows("--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "picture.png")
        self.assertIn("float16: not possible: ", out)
        self.assertRegex(out, r"uint8 +1.0000000")
        self.corvane("kinds", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "none.png", status=1,
                     says="none.png: ")

    def test_manual_and_completion_are_those_of_the_help(self):
        for verb, name in [("manual", "corvane.1"), ("completion", "corvane.bash")]:
            with open(os.path.join(TOOLS, name), encoding="utf-8") as file:
                self.assertEqual(self.corvane(verb)[0], file.read(), "renew it: corvane %s > tools/%s" % (verb, name))
        manual = self.corvane("manual")[0].replace("\\-", "-")
        for verb in re.findall(r"^  (\w+) +[A-Z]", self.corvane("--help")[0], re.M):
            self.assertIn(".SH CORVANE " + verb, manual)
            for option in re.findall(r"^  (?:-\w,)?(--[\w-]+)", self.corvane(verb, "--help")[0], re.M):
                self.assertRegex(manual, r"\\fB(-\w,)?" + option)
        script = ('source "$1"; COMP_WORDS=(corvane %s); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); '
                  "_corvane; echo ${COMPREPLY[@]}")
        for words, expected in [("ru", "run"), ("run --exp", "--expect"), ("explain --exp", "--expect --expect-input"),
                                ("pack mod", "model.onnx"), ("--ver", "--version")]:
            self.write("model.onnx", "")
            done = subprocess.run(["bash", "-c", script % words, "bash", os.path.join(TOOLS, "corvane.bash")],
                                  cwd=self.folder.name, stdout=subprocess.PIPE, check=True)
            self.assertEqual(done.stdout.decode().strip(), expected)


if __name__ == "__main__":
    main()
