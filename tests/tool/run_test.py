#!/usr/bin/env python3
"""run, align and the quick start from outside. Models that echo their input show to the bit what was fed."""
import json
import os
import pty
import signal
import struct
import subprocess
import sys
import time

from tool_case import EXAMPLES, FACE, ONNX, PREFIX, ToolCase, main, png, read_npy


class RunTest(ToolCase):
    def test_run_hands_over_what_the_settings_say(self):
        rgb = self.picture()
        red, green, blue = rgb[0::3], rgb[1::3], rgb[2::3]
        gray = [(19595 * r + 38470 * g + 7471 * b + 32768) >> 16 for r, g, b in zip(red, green, blue)]

        def scaled(plane, mean, scale):
            return [(x - mean) * scale for x in plane]

        colour = ["--means=64,0.5,16", "--scales=0.5,0.25,2"]
        for kind, pixel_type, constants, expected in [
            ("float32", "RGB", [], red + green + blue),
            ("float32", "BGR", [], blue + green + red),
            # Means and scales follow the bytes that are handed over, here B, G, R.
            ("float32", "BGR2RGB", colour,
             scaled(red, 16, 2) + scaled(green, 0.5, 0.25) + scaled(blue, 64, 0.5)),
            ("float32", "RGB2BGR", colour,
             scaled(blue, 16, 2) + scaled(green, 0.5, 0.25) + scaled(red, 64, 0.5)),
            ("float16", "RGB", colour,
             scaled(red, 64, 0.5) + scaled(green, 0.5, 0.25) + scaled(blue, 16, 2)),
            ("int16", "RGB", colour,
             scaled(red, 64, 0.5) + scaled(green, 0.5, 0.25) + scaled(blue, 16, 2)),
            ("uint8", "BGR", [], blue + green + red),
            ("float32", "GRAY", ["--means=100"], scaled(gray, 100, 1)),
            ("float32", "RGB", ["--means=100", "--scales=1/8"], scaled(red + green + blue, 100, 0.125)),
        ]:
            with self.subTest(kind=kind, pixel_type=pixel_type):
                self.echo("1x1x2x4" if pixel_type == "GRAY" else "1x3x2x4",
                          kind if kind in ("float16", "int16") else "float32", "fl=5" if kind == "int16" else "")
                got = self.values_from("picture.png", "--model", "model.bin", "--kind", kind, "--pixel-type", pixel_type,
                                  *constants)
                self.assertEqual(got, expected)

    def test_run_from_settings_with_a_folder_of_results(self):
        os.mkdir(self.path("sub"))
        os.mkdir(self.path("settings"))
        self.echo("1x3x112x112")
        self.write("settings/run.ini", "[model]\nfile = ../model.bin # here\n[input]\nkind=float32\npixel_type=RGB\n"
                   "means = 1,1,1\n[landmarks]\npicture.png = %s\n[output]\nfolder = ../results/new\n" %
                   ", ".join(str(x + (10, 5)[i % 2]) for i, x in enumerate(FACE)))
        rgb = self.picture(130, 120, "sub/picture.png")
        self.corvane("run", "-c", "settings/run.ini", "sub/picture.png", says=["130 x 120", "1 x 3 x 112 x 112"])
        with open(self.path("results/new/results.json"), encoding="utf-8") as file:
            result = json.load(file)["images"][0]
        # The face stands 10 right of and 5 below its place: the aligned picture begins there.
        expected = [rgb[3 * ((y + 5) * 130 + x + 10) + c] - 1
                    for c in range(3) for y in range(112) for x in range(112)]
        self.assertEqual(result["outputs"][0]["values"], expected)
        self.assertEqual(read_npy(self.path("results/new/picture.0.npy")), ((1, 3, 112, 112), expected))
        self.assertLess(result["fit_error"], 1e-3)
        self.assertGreater(result["run_ms"], 0)
        self.assertGreaterEqual(result["prepare_ms"], 0)
        # `align` writes the same face, which needs no landmarks any more; options override settings.
        self.corvane("align", "sub/picture.png", "-o", "face.png",
                     "--landmarks", ",".join(str(x + (10, 5)[i % 2]) for i, x in enumerate(FACE)))
        self.assertEqual(self.values_from("face.png", "-c", "settings/run.ini", "--means=1,1,0"),
                         expected[:2 * 112 * 112] + [x + 1 for x in expected[2 * 112 * 112:]])
        self.assertEqual(self.values_from("results/new/picture.face.png", "-c", "settings/run.ini"), expected)

    def test_run_refuses(self):
        self.echo()
        self.picture()
        good = {"model": ["file = model.bin"], "input": ["kind = float32", "pixel_type = RGB"]}

        def ini(**changes):
            sections = {**good, **changes}
            return "".join("[%s]\n%s\n" % (name, "\n".join(lines)) for name, lines in sections.items())

        def inputs(*lines):
            return ini(input=list(lines))

        self.model("input a float32 4x3x2x4\noutput b float32 1\n", "batch.bin")
        self.model("input a float32 1x2x4x3\noutput b float32 1\n", "last.bin")
        for text, says in [
            (ini(model=[]), "[model] file"),
            (ini(model=["file ="]), "[model] file"),
            (inputs("pixel_type = RGB"), "[input] kind"),
            (inputs("kind = float32"), "[input] pixel_type"),
            (ini(modle=["file = x"]), "run.ini: [modle]: unknown section"),
            (ini(model=["file = model.bin", "flie = x"]), "run.ini: [model] flie: unknown setting"),
            ("file = model.bin\n" + ini(), "run.ini: file: is before the first section"),
            (inputs("kind = float32", "kind = float32", "pixel_type = RGB"), "run.ini: [input] kind: given twice"),
            (inputs("kind = float32", "oops"), "run.ini: a line without '=', after [input] kind"),
            (ini() + "[model]\n", "second time"),
            (inputs("kind = float", "pixel_type = RGB"), "run.ini: [input] kind: 'float' is none of"),
            (inputs("kind = int8", "pixel_type = RGB"), "[input] kind: 'int8' is none of"),
            (inputs("kind = float32", "pixel_type = RGBA"), "[input] pixel_type: 'RGBA' is none of"),
            (inputs("kind = float32", "pixel_type = RGB", "means = 1,2,3x"), "[input] means: '3x' is not a number"),
            (inputs("kind = float32", "pixel_type = RGB", "scales = 1,inf,2"), "[input] scales: 'inf'"),
            (inputs("kind = float32", "pixel_type = RGB", "means = 1,2"), "[input] means: 2 values"),
            (inputs("kind = uint8", "pixel_type = RGB", "means = 1,2,3"), "[input] means: not applied"),
            (inputs("kind = uint8", "pixel_type = BGR2RGB"), "[input] pixel_type"),
            (inputs("kind = float32", "pixel_type = RGB", "resize = maybe"), "[input] resize: 'maybe'"),
            (ini(landmarks=["picture.png = 1,2,3"]), "[landmarks] picture.png: 3 numbers"),
            (ini(landmarks=["picture.png = 1,2,1,2,1,2,1,2,1,2"]), "picture.png: no face can be aligned"),
            (ini(landmarks=["picture.png = " + ",".join(map(str, FACE))]), "112 x 112"),
            (ini(model=["file = missing.bin"]), "missing.bin: No such file"),
            (ini(model=["file = run.ini"]), "run.ini: not loaded: rknn_init: RKNN_ERR_MODEL_INVALID (-6)"),
            (inputs("kind = float32", "pixel_type = GRAY"), "GRAY"),
            # What is known at load is said before the first picture, with the cure.
            (inputs("kind = float16", "pixel_type = RGB"), "its input is float32; use kind float32, or corvane pack --type float16"),
            (inputs("kind = int16", "pixel_type = RGB"), "corvane pack --type int16 --fl N"),
            (ini(model=["file = batch.bin"]), "batch.bin: takes 4 pictures at once"),
            (ini(model=["file = last.bin"]), "last.bin: takes 2 channel(s), but pixel type RGB has 3; 1 x 2 x 4 x 3 looks like NHWC"),
            (inputs("kind = float32", "pixel_type = RGB", "scales = 1/0"), "[input] scales: '1/0'"),
            (inputs("kind = float32", "pixel_type = RGB", "template = 113"), "[input] template: '113' is none of 112, 96x112"),
            (inputs("kind = float32", "pixel_type = RGB", "exif = no"), "[input] exif: 'no'"),
        ]:
            self.write("run.ini", text)
            self.corvane("run", "-c", "run.ini", "picture.png", status=1, says=says)
        self.corvane("run", "-c", "missing.ini", "picture.png", status=1, says="missing.ini: No such file")
        self.model("input a float32 1x3x2x4\ninput b float32 1x3x2x4\noutput c float32 1\n", "two.bin")
        self.write("run.ini", ini())
        self.corvane("run", "-c", "run.ini", "--model", "two.bin", "picture.png", status=1, says="two.bin: 2 inputs")
        self.corvane("run", "-c", "run.ini", "picture.png", "--json", "no/x.json", status=1, says="no/x.json")
        self.corvane("run", "-c", "run.ini", "picture.png", "--npy", "run.ini", status=1, says="run.ini")
        self.corvane("run", "-c", "run.ini", "picture.png", "picture.png", "--npy", "x", status=1, says="picture.png: is given twice")
        self.corvane("run", "-c", "run.ini", "picture.png", "--show", status=1, says="--show: needs a folder")
        self.corvane("run", "-c", "run.ini", "picture.png", "picture.png", "--landmarks", "1", status=1, says="--landmarks")

    def test_a_failed_or_mistaken_output_costs_no_file(self):
        self.echo()
        self.write("model.onnx", ONNX)
        self.picture(name="a.png")
        self.picture(name="a.face.png")
        os.symlink("a.png", self.path("link.png"))
        for folder in ("same", "linked", "hard", "own"):
            os.mkdir(self.path(folder))
        os.symlink("../model.bin", self.path("same/a.0.npy"))
        os.symlink("../a.png", self.path("linked/a.0.npy"))
        os.link(self.path("model.bin"), self.path("hard/a.0.npy"))
        marks = ",".join(map(str, FACE))
        run = ["run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "a.png", "a.face.png"]

        def state():
            files = {name: os.stat(self.path(name)) for name in os.listdir(self.folder.name)}
            return {name: (stat.st_ino, stat.st_size, stat.st_mtime_ns) for name, stat in files.items()}

        before = state()
        for command, name in [(["align", "a.png", "--landmarks", marks, "-o", "./a.png"], "./a.png"),
                              (["align", "a.png", "--landmarks", marks, "-o", "link.png"], "link.png"),
                              (["align", "a.png", "--landmarks", marks, "-o", "x.jpg"], "x.jpg"),
                              (["pack", "model.onnx", "-o", "model.onnx"], "model.onnx"),
                              ([*run, "--json", "model.bin"], "model.bin"),
                              ([*run, "--npy", "same"], "same/a.0.npy"),
                              ([*run, "--npy", "linked"], "linked/a.0.npy"),
                              ([*run, "--npy", "hard"], "hard/a.0.npy"),
                              ([*run, "--npy", "own", "--json", "own/a.0.npy"], "own/a.0.npy"),
                              ([*run, "--output", "."], "./a.face.png")]:
            self.corvane(*command, status=1, says=name + ": ")
        # The system takes 100 bytes of a file and no more.
        pack = [self.programs[0], "pack", "--raw", "a.png", "-o", "model.bin"]
        limited = ("import resource, subprocess; resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100)); "
                   f"raise SystemExit(subprocess.call({pack!r}, restore_signals=False))")
        done = subprocess.run([sys.executable, "-c", limited], cwd=self.folder.name, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, check=False)
        self.assertEqual((done.returncode, done.stderr), (1, b"corvane: model.bin: File too large\n"))
        self.assertEqual(state(), before)
        os.chmod(self.path("model.bin"), 0o640)
        os.symlink("model.bin", self.path("model.link"))
        self.corvane("pack", "model.onnx", "-o", "model.link")
        self.assertEqual(os.stat(self.path("model.bin")).st_mode & 0o777, 0o640)
        self.assertTrue(os.path.islink(self.path("model.link")))
        self.assertEqual(os.stat(self.path("model.bin")).st_size, len(PREFIX + ONNX))

    def test_one_bad_picture_of_several_costs_only_itself(self):
        self.echo()
        odd = b'a"b\\\xc3\xbc\xff\x01.png'
        self.write(odd, png(4, 2, [7] * 24))
        self.picture()
        command = [self.programs[0], "run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "picture.png",
                   "missing.png", odd, "--json", "all.json"]
        done = subprocess.run(command, cwd=self.folder.name, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"1 of 3 images failed", done.stderr)
        self.assertIn(b"3 pictures, 1 failed", done.stdout)
        self.assertIn(b"failed 1: No such file", done.stdout)
        self.assertNotIn(b"\r", done.stderr)  # no progress bar where nobody looks
        with open(self.path("all.json"), encoding="utf-8") as file:
            images = json.load(file)["images"]
        self.assertEqual([("error" in image, image["file"]) for image in images],
                         [(False, "picture.png"), (True, "missing.png"), (False, 'a"b\\\u00fc\ufffd\u0001.png')])
        try:
            reader, terminal = pty.openpty()
        except OSError as reason:  # a bare container
            self.skipTest(f"the progress bar is not seen: {reason}")
        subprocess.run(command, cwd=self.folder.name, stdout=subprocess.DEVNULL, stderr=terminal, check=False)
        os.close(terminal)
        self.assertRegex(os.read(reader, 10000), rb"\] 2 of 3, 0:0\d left")
        os.close(reader)

    def test_folders_lists_and_equal_names(self):
        self.echo()
        run = ["run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", "--quiet"]
        os.makedirs(self.path("in/a/deep"))
        os.makedirs(self.path("in/b"))
        pictures = {name: self.picture(name="in/" + name) for name in ["a/x.png", "b/x.png", "a/deep/y.PNG", "b/x.jpg"]}
        self.write("in/list.txt", "b/x.png\r\n\na\n")
        self.write("in/notes.md", "no picture")
        os.mkdir(self.path("empty"))

        def files(folder):
            return sorted(os.path.relpath(os.path.join(base, name), self.path(folder))
                          for base, _, names in os.walk(self.path(folder)) for name in names if name.endswith(".npy"))

        for arguments, standard_input, expected in [
            (["in"], b"", ["a/deep/y.PNG.0.npy", "a/x.png.0.npy", "b/x.jpg.0.npy", "b/x.png.0.npy"]),
            (["in/list.txt"], b"", ["a/deep/y.0.npy", "a/x.0.npy", "b/x.0.npy"]),
            (["@in/list.txt"], b"", ["a/deep/y.0.npy", "a/x.0.npy", "b/x.0.npy"]),
            (["-"], b"in/a/x.png\nin/a/deep", ["x.0.npy", "y.0.npy"]),
        ]:
            folder = "out%d" % len(os.listdir(self.folder.name))
            done = subprocess.run([self.programs[0], *run, *arguments, "--npy", folder], cwd=self.folder.name,
                                  input=standard_input, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
            self.assertEqual((done.returncode, files(folder)), (0, expected), done.stderr)
            self.assertIn(b"%d pictures, 0 failed" % len(expected), done.stdout)
            self.assertNotIn(b"first values", done.stdout)
            for name in expected:
                if len(expected) == 4:
                    rgb = pictures[name[:-6]]
                    self.assertEqual(read_npy(self.path(folder + "/" + name))[1], rgb[0::3] + rgb[1::3] + rgb[2::3])
        for argument, says in [("empty", "empty: holds no .png"), ("@none", "none: the list cannot be read"), ("-", "no picture")]:
            self.corvane(*run, argument, status=1, says=says)

    def test_an_ended_run_keeps_what_it_did(self):
        self.echo()
        names = ["p%d.png" % i for i in range(200)]
        for name in names:
            self.picture(name=name)
        slow = {**os.environ, "CORVANE_SIM_FAULTS": "rknn_run:*+20ms"}
        tool = subprocess.Popen([self.programs[0], "run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB",
                                 *names, "--json", "results.json", "--quiet"], cwd=self.folder.name, env=slow,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        lines = self.path("results.jsonl")
        while tool.poll() is None and (not os.path.exists(lines) or os.path.getsize(lines) == 0):
            time.sleep(0.01)
        tool.send_signal(signal.SIGINT)
        out, err = tool.communicate(timeout=60)
        self.assertEqual(tool.returncode, 130, err)
        self.assertRegex(err, rb"ended by a signal after \d+ of 200 pictures")
        with open(self.path("results.json"), encoding="utf-8") as file:
            images = json.load(file)["images"]
        with open(lines, encoding="utf-8") as file:
            self.assertEqual([json.loads(line) for line in file], images)
        self.assertTrue(0 < len(images) < 200)
        self.assertIn(b"%d pictures, 0 failed" % len(images), out)

    def test_a_failing_runtime_is_no_success(self):
        self.echo()
        self.picture()
        for fault, status, says in [("rknn_run:1=-2", 1, b"picture.png: rknn_run: RKNN_ERR_TIMEOUT (-2)"),
                                    ("rknn_outputs_get:1=-99", 1, b"rknn_outputs_get: unknown code (-99)"),
                                    ("rknn_query:2=-5", 1, b"not loaded: rknn_query: RKNN_ERR_PARAM_INVALID (-5)"),
                                    ("rknn_outputs_get:1=3", 0, b"")]:
            done = subprocess.run([self.programs[0], "run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB",
                                   "picture.png"], cwd=self.folder.name, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  env={**os.environ, "CORVANE_SIM_FAULTS": fault}, check=False)
            self.assertEqual(done.returncode, status, fault)
            self.assertIn(says, done.stderr)
            self.assertEqual(b"first values" in done.stdout, status == 0)

    def test_command_line(self):
        self.corvane(status=2)
        self.corvane("fly", status=2, says="'fly'")
        self.corvane("run", "--bogus", status=2, says="'--bogus'")
        self.corvane("run", status=2)
        self.corvane("align", "x.png", "-o", "y.png", status=2, says="--landmarks")
        self.assertEqual(self.corvane("--version")[0], "0.6.6.dev\n")
        self.corvane("run", "--help", says="[landmarks]")
        with open("/dev/full", "wb") as full:
            self.assertEqual(subprocess.call([self.programs[0], "--version"], stdout=full, stderr=subprocess.DEVNULL), 1)

    def test_quick_start(self):
        photo = os.path.join(EXAMPLES, "portrait.png")
        self.corvane("pack", os.path.join(EXAMPLES, "descriptor.onnx"), "-o", "descriptor.bin")
        with open(os.path.join(EXAMPLES, "portrait.ini"), encoding="utf-8") as file:
            self.write("run.ini", file.read().replace("../build/quickstart/", ""))
        info = subprocess.run([self.programs[0], "info", "descriptor.bin"], cwd=self.folder.name, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, check=False)
        if b"simulator was built without" in info.stderr:
            self.skipTest("this simulated runtime does not execute ONNX models")
        self.assertEqual(info.returncode, 0, info.stderr)
        self.corvane("run", "-c", "run.ini", photo, says=["descriptor  1 x 512", "aligned to 112 x 112"])
        # What `pack` notes in the model is what the runtime goes by: every kind of input, one answer.
        expected = self.values_from(photo, "-c", "run.ini")
        by_runtime = ["--mean", "127.5,127.5,127.5", "--scale=" + ",".join(["0.00784313725"] * 3)]
        for kind, packed in [("float16", ["--type", "float16"]), ("int16", ["--type", "int16", "--fl", "12"]),
                             ("uint8", by_runtime)]:
            self.corvane("pack", os.path.join(EXAMPLES, "descriptor.onnx"), "-o", "kind.bin", *packed)
            self.write("kind.ini", "[landmarks]\nportrait.png = 202,101, 248,102, 225,123, 206,143, 241,143\n")
            constants = [] if kind == "uint8" else ["--means=127.5,127.5,127.5", by_runtime[2].replace("scale", "scales")]
            got = self.values_from(photo, "-c", "kind.ini", "--model", "kind.bin", "--kind", kind, "--pixel-type", "RGB",
                              *constants)
            self.assertLess(max(abs(x - y) for x, y in zip(got, expected)), 1e-3, kind)
        done = subprocess.run([self.programs[1], "run.ini", photo, "picture.png"], cwd=self.folder.name,
                              stdout=subprocess.PIPE, check=True)
        askew, aligned, other = [float(line.split()[0]) for line in done.stdout.decode().splitlines()[-3:]]
        self.assertGreater(aligned, 0.95)
        self.assertLess(askew, 0.7)
        self.assertLess(other, 0.4)
        with open(self.path("picture.png"), "rb") as file:
            self.assertEqual(struct.unpack(">II", file.read()[16:24]), (920, 548))


if __name__ == "__main__":
    main()
