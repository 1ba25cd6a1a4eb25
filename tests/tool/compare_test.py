#!/usr/bin/env python3
"""compare and run --expect from outside."""
import json
import math
import os

from tool_case import ToolCase, main, write_npy

NAN, INF = math.nan, math.inf


class CompareTest(ToolCase):
    def npy(self, name, shape, values, **form):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        write_npy(self.path(name), shape, values, **form)

    def compare(self, *arguments, status=0):
        self.corvane("compare", *arguments, "--json", "difference.json", status=status)
        with open(self.path("difference.json"), encoding="utf-8") as file:
            result = json.load(file)
        self.assertEqual(result["within"], status == 0)
        return result["outputs"]

    def test_what_is_measured(self):
        self.npy("r.npy", (2, 3), [1, 2, 3, 4, 5, 6])
        self.npy("t.npy", (2, 3), [1, 2, 3.5, 4, 5, 5.75])
        row, = self.compare("r.npy", "t.npy", status=1)
        self.assertEqual((row["largest"], row["index"], row["reference"], row["test"]), (0.5, [0, 2], 3, 3.5))
        self.assertEqual((row["elements"], row["beyond"]), (6, 2))
        self.assertAlmostEqual(row["rms"], math.sqrt((0.5 ** 2 + 0.25 ** 2) / 6), places=6)
        dot, norms = 1 + 4 + 10.5 + 16 + 25 + 34.5, math.sqrt(91 * (1 + 4 + 12.25 + 16 + 25 + 5.75 ** 2))
        self.assertAlmostEqual(row["cosine"], dot / norms, places=6)
        self.corvane("compare", "r.npy", "t.npy", "--rtol", "0.1", "--atol", "0.2", says="all of 1 within rtol 0.1, atol 0.2")
        out, _ = self.corvane("compare", "r.npy", "t.npy", "--rtol", "0", "--atol", "0.3", status=1)
        for text in ["[0,2]: 3, 3.5", "16.67 %", "1 of 1 beyond rtol 0, atol 0.3"]:
            self.assertIn(text, out)
        printed, _ = self.corvane("compare", "r.npy", "t.npy", "--json", status=1)
        self.assertEqual(json.loads(printed)["outputs"], [row])

    def test_elements_at_the_edge(self):
        for reference, test, beyond, odd in [
            ([1, 2], [1, 2], 0, (0, 0, 0, 0)),
            ([1, 2], [1.25, 2], 0, (0, 0, 0, 0)),  # exactly at the bound
            ([1, 2], [1.2501, 2], 1, (0, 0, 0, 0)),
            ([-8, 0], [-9.125, 0.25], 1, (0, 0, 0, 0)),
            ([NAN, 1], [NAN, 1], 0, (1, 0, 1, 0)),
            ([NAN, 1], [0, NAN], 2, (1, 0, 1, 0)),
            ([INF, -INF], [INF, INF], 1, (0, 2, 0, 2)),
            ([INF, 1], [3e38, -INF], 2, (0, 1, 0, 1)),
            ([NAN, NAN], [INF, 5], 2, (2, 0, 0, 1)),
            ([0, 0], [0, 0], 0, (0, 0, 0, 0)),
            ([], [], 0, (0, 0, 0, 0)),
        ]:
            with self.subTest(reference=reference, test=test):
                self.npy("r.npy", (len(reference),), reference)
                self.npy("t.npy", (len(test),), test)
                row, = self.compare("r.npy", "t.npy", "--rtol", "0.125", "--atol", "0.125", status=1 if beyond else 0)
                self.assertEqual(row["beyond"], beyond)
                self.assertEqual((row["reference_nan"], row["reference_infinite"], row["test_nan"], row["test_infinite"]), odd)

    def test_arrays_of_every_form(self):
        values = [0, 1, 0, 1, 1, 0]
        self.npy("r.npy", (2, 3), values)
        for descr in "<f2", "<f4", ">f4", "<f8", ">f8", "|u1", "<i2", ">i2", "|b1":
            self.npy("t.npy", (2, 3), values, descr=descr)
            self.compare("r.npy", "t.npy", "--rtol", "0", "--atol", "0")
        self.npy("t.npy", (2, 3), [0, 1, 1, 1, 0, 0], fortran=True)
        self.compare("r.npy", "t.npy", "--rtol", "0", "--atol", "0")
        self.npy("t.npy", (1, 2, 1, 3), values)
        self.compare("r.npy", "t.npy")
        self.npy("t.npy", (3, 2), values)
        row, = self.compare("r.npy", "t.npy", status=1)
        self.assertEqual(row["problem"], "shape 2 x 3 against 3 x 2")
        for name, content, says in [("none.npy", None, "No such file"), ("t.npy", b"text", "no .npy file"),
                                    ("t.npy", b"\x93NUMPY\1\0\4\0{  }", "no array of"), ("r.json", b"{}", "no results"),
                                    ("r.json", b'{"images":[{"file":"a","outputs":[{"name":"x","shape":[2],"values":[1]}]}]}', "fill"),
                                    ("empty", None, "holds no .npy")]:
            if content is not None:
                self.write(name, content)
            elif name == "empty":
                os.mkdir(self.path(name))
            self.corvane("compare", "r.npy", name, status=2, says=[name + ": ", says])
        self.corvane("compare", "r.npy", status=2)
        self.corvane("compare", "r.npy", "r.npy", "--rtol", "-1", status=2, says="--rtol: '-1'")
        self.corvane("compare", "r.npy", "r.npy", "--json", "r.npy", status=2, says="r.npy: is an input")

    def test_runs_against_runs(self):
        self.echo()
        for name in "a.png", "b.png":
            self.picture(name=name)
        run = ["run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "a.png", "b.png"]
        self.corvane(*run, "--output", "one")
        self.corvane(*run, "--output", "two", "--scales", "1.0005")
        for reference, test in [("one", "two"), ("one/results.json", "two"), ("one", "two/results.jsonl"),
                                ("one/results.jsonl", "two/results.json")]:
            self.assertEqual([row["output"] for row in self.compare(reference, test)], ["a.0", "b.0"])
            rows = self.compare(reference, test, "--rtol", "0.0004", status=1)
            self.assertTrue(all(row["beyond"] > 20 for row in rows))
        os.remove(self.path("two/b.0.npy"))
        self.npy("two/c.0.npy", (1,), [1])
        rows = self.compare("one", "two", status=1)
        self.assertEqual([(row["output"], row.get("problem")) for row in rows],
                         [("a.0", None), ("b.0", "missing in the test"), ("c.0", "missing in the reference")])
        # run --expect compares what it ran, and nothing else.
        self.npy("one/c.0.npy", (1,), [1])
        for arguments, status, says in [
            (["--expect", "one"], 0, "all of 2 within"),
            (["--expect", "one/results.json", "--rtol", "0", "--atol", "0"], 0, "all of 2 within"),
            (["--expect", "one", "--scales", "1.1"], 1, "2 of 2 beyond"),
            (["--expect", "two"], 1, "missing in the reference"),
        ]:
            out, _ = self.corvane(*run, *arguments, status=status)
            self.assertIn(says, out)
        self.corvane(*run[:-1], "--expect", "one/a.0.npy")
        self.corvane(*run, "--expect", "one/a.0.npy", status=1, says="--expect: one array for 2 pictures")
        self.corvane(*run, "--expect", "none", status=1, says="none: ")

    def test_numbers_that_are_none_are_pointed_out(self):
        self.model("input image float32 1x3x2x4\noutput echo float32 1x3x2x4 echo=0\n")
        self.picture()
        _, err = self.corvane("run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "picture.png",
                              "--scales", "3e38", "--json", "odd.json", "--output", "odd")
        self.assertRegex(err, r"picture.png: output 0 holds 0 NaN and \d+ infinite values of 24")
        with open(self.path("odd.json"), encoding="utf-8") as file:
            results = json.load(file)
        output = results["images"][0]["outputs"][0]
        self.assertEqual((output["nan"], output["infinite"]), (0, output["values"].count(None)))
        self.assertEqual(results["summary"]["not_finite"], 1)
        self.compare("odd", "odd")


if __name__ == "__main__":
    main()
