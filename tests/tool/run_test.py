#!/usr/bin/env python3
"""pack, info, run, align and the quick start from outside.

Models that echo their input show to the bit what the tool made of a picture.
"""
import base64
import json
import os
import pty
import signal
import struct
import subprocess
import sys
import time
import zlib

from tool_case import EXAMPLES, FACE, PREFIX, ToolCase, chunk, main, png, read_npy

ONNX = b"\x08\x06" + b"\x12\x04make" + b"\x3a\x03\x12\x01g" + b"\x72\x08\x0a\x03own\x12\x01x"
# 4 x 2 pixels of R, G, B = 200, 120, 40.
JPEG = base64.b64decode(
    "/9j/4AAQSkZJRgABAQAAAQABAAD/2wBDAAIBAQEBAQIBAQECAgICAgQDAgICAgUEBAMEBgUGBgYFBgYGBwkIBgcJBwYGCAsICQoK"
    "CgoKBggLDAsKDAkKCgr/2wBDAQICAgICAgUDAwUKBwYHCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoKCgoK"
    "CgoKCgoKCgr/wAARCAACAAQDASIAAhEBAxEB/8QAFQABAQAAAAAAAAAAAAAAAAAAAAX/xAAUEAEAAAAAAAAAAAAAAAAAAAAA/8QA"
    "FAEBAAAAAAAAAAAAAAAAAAAACP/EABQRAQAAAAAAAAAAAAAAAAAAAAD/2gAMAwEAAhEDEQA/ALgAVl4//9k=")


def jpeg_of_scans(count):
    """A progressive gray JPEG of one block, all zero; each coefficient comes in two scans."""
    def segment(marker, data):
        return bytes([0xFF, marker]) + struct.pack(">H", len(data) + 2) + data
    scans = [(0, 0, 0, 0)]
    scans += [(k, k, 0, 1) for k in range(1, 64)] + [(k, k, 1, 0) for k in range(1, 64)]
    one_code = b"\1" + 16 * b"\0"
    data = b"\xff\xd8" + segment(0xDB, b"\0" + 64 * b"\1") + segment(0xC2, struct.pack(">BHHBBBB", 8, 8, 8, 1, 1, 0x11, 0))
    data += segment(0xC4, b"\x00" + one_code) + segment(0xC4, b"\x10" + one_code)
    for begin, end, high, low in scans[:count]:
        data += segment(0xDA, bytes([1, 1, 0, begin, end, high << 4 | low])) + b"\x7f"
    return data + b"\xff\xd9"


def fields(data):
    """The top-level fields of a protobuf message, lengths below 128."""
    at = 0
    while at < len(data):
        tag, value = data[at], data[at + 1]
        end = at + 2 + (value if tag & 7 == 2 else 0)
        yield tag >> 3, data[at + 2:end]
        at = end


class RunTest(ToolCase):
    # ------------------------------------------------------------------------------------------ pack

    def test_pack_puts_the_properties_behind_the_model_and_replaces_earlier_ones(self):
        self.write("model.onnx", ONNX)
        self.corvane("pack", "model.onnx", "-o", "plain.bin")
        with open(self.path("plain.bin"), "rb") as file:
            self.assertEqual(file.read(), PREFIX + ONNX)
        self.corvane("pack", "model.onnx", "-o", "first.bin", "--type", "int16", "--fl", "-3", "--mean", "1,2.5,-3")
        with open(self.path("first.bin"), "rb") as file:
            first = file.read()[len(PREFIX):]
        self.assertTrue(first.startswith(ONNX))
        entries = [dict(fields(content)) for number, content in fields(first) if number == 14]
        self.assertEqual(entries, [{1: b"own", 2: b"x"}, {1: b"corvane.input.fl", 2: b"-3"},
                                   {1: b"corvane.input.mean", 2: b"1,2.5,-3"},
                                   {1: b"corvane.input.type", 2: b"int16"}])
        self.write("again.onnx", first)
        self.corvane("pack", "again.onnx", "-o", "second.bin", "--type", "float16")
        with open(self.path("second.bin"), "rb") as file:
            again = [dict(fields(content)) for number, content in fields(file.read()[len(PREFIX):]) if number == 14]
        self.assertEqual(again, entries[:3] + [{1: b"corvane.input.type", 2: b"float16"}])

    def test_pack_refuses(self):
        self.write("model.onnx", ONNX)
        self.write("text.onnx", "no model at all")
        self.write("cut.onnx", ONNX[:-1])
        self.write("empty.onnx", "")
        self.write("graphless.onnx", b"\x08\x06")
        for arguments, says in [
            (["missing.onnx"], "missing.onnx: "),
            (["."], ".: "),
            (["text.onnx"], "text.onnx: no ONNX model"),
            (["cut.onnx"], "cut.onnx: no ONNX model"),
            (["empty.onnx"], "empty.onnx: no ONNX model"),
            (["graphless.onnx"], "graphless.onnx: no ONNX model"),
            (["empty.onnx", "--raw"], "empty.onnx"),
            (["text.onnx", "--raw", "--type", "int8"], "--raw"),
            (["model.onnx", "--type", "float64"], "--type: 'float64'"),
            (["model.onnx", "--type", "int16"], "--fl"),
            (["model.onnx", "--fl", "7"], "--fl"),
            (["model.onnx", "--type", "float16", "--fl", "7"], "--fl"),
            (["model.onnx", "--type", "int16", "--fl", "128"], "--fl: '128'"),
            (["model.onnx", "--type", "int16", "--fl", "7x"], "--fl: '7x'"),
            (["model.onnx", "--mean", "1,,2"], "--mean: ''"),
            (["model.onnx", "--mean", "1,2,"], "--mean: ''"),
            (["model.onnx", "--mean", "1,2"], "--mean: 2 numbers"),
            (["model.onnx", "--scale", "nan"], "--scale: 'nan'"),
            (["model.onnx", "-o", "no/folder/x.bin"], "no/folder/x.bin: "),
        ]:
            output = [] if "-o" in arguments else ["-o", "out.bin"]
            self.corvane("pack", *arguments, *output, status=1, says=says)
            self.assertFalse(os.path.exists(self.path("out.bin")), arguments)
        self.corvane("pack", "text.onnx", "--raw", "-o", "raw.bin")
        with open(self.path("raw.bin"), "rb") as file:
            self.assertEqual(file.read(), PREFIX + b"no model at all")

    # ------------------------------------------------------------------------------------------ info

    def test_info(self):
        self.model("input image int16 1x3x2x4 fl=7\noutput a float32 1x5\noutput b float32 1x2x1x3 nhwc\n")
        self.corvane("info", "model.bin", says=[
            '"CORVANE-MODEL"', "inputs        1", "outputs       2", '"image"', "1 x 3 x 2 x 4", "4, 2, 3, 1",
            "24 in 48 bytes", "int16, NCHW, quantisation: fixed point, fl 7", '"b"', "NHWC"])
        self.write("short.bin", "12 bytes...")
        self.write("junk.bin", PREFIX + b"junk")
        self.corvane("info", "short.bin", status=1, says="short.bin: ")
        self.corvane("info", "junk.bin", status=1, says="junk.bin: rknn_init: RKNN_ERR_MODEL_INVALID (-6)")
        self.write("raw.onnx", ONNX)
        self.corvane("info", "raw.onnx", status=1,
                     says=["raw.onnx: rknn_init: RKNN_ERR_MODEL_INVALID (-6)", "pack it first"])
        self.picture()
        self.corvane("run", "--model", "raw.onnx", "--kind", "float32", "--pixel-type", "RGB", "picture.png",
                     status=1, says=["raw.onnx: not loaded", "pack it first"])

    # ------------------------------------------------------------------------------------------- run

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

    def test_pictures_of_every_form(self):
        self.echo()
        common = ["--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB"]
        self.write("picture.jpg", JPEG)
        for value, expected in zip(self.values_from("picture.jpg", *common), [200] * 8 + [120] * 8 + [40] * 8):
            self.assertAlmostEqual(value, expected, delta=2)
        header = b"\x89PNG\r\n\x1a\n"
        for name, depth, colour, rows, pixel in [
            ("gray", 8, 0, b"\0\x10\x20\x30\x40" * 2, [0x10, 0x10, 0x10]),
            ("gray16", 16, 0, b"\0\x10\x00\x20\x00\x30\x00\x40\x00" * 2, [0x10, 0x10, 0x10]),
            ("clear", 8, 6, b"\0" + b"\xff\xff\xff\x00" * 4 + b"\0" + b"\1\2\3\xff" * 4, [0, 0, 0]),
        ]:
            self.write("form.png", header + chunk(b"IHDR", struct.pack(">IIBBBBB", 4, 2, depth, colour, 0, 0, 0))
                       + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))
            self.assertEqual(self.values_from("form.png", *common)[::8], pixel, name)
        # Every 2 x 2 block of one colour: halving gives these colours.
        blocks = [[self.random.randrange(256) for _ in range(3)] for _ in range(8)]
        self.write("double.png", png(8, 4, [v for y in range(4) for x in range(8) for v in blocks[y // 2 * 4 + x // 2]]))
        for rule in "true", "bilinear", "antialias", "nearest", "letterbox":
            halved = self.values_from("double.png", *common, "--resize", rule)
            if rule == "nearest":
                self.assertEqual(halved, [block[c] for c in range(3) for block in blocks])
            elif rule != "antialias":  # a wider filter, which takes neighbours in
                self.assertEqual(halved, [block[c] for c in range(3) for block in blocks], rule)

    def test_resize_rules(self):
        self.echo("1x1x1x4")
        gray = [0, 40, 80, 120, 160, 200, 240, 250]
        self.write("row.png", png(8, 1, [v for v in gray for _ in range(3)]))
        self.write("one.png", png(1, 1, [90, 90, 90]))
        self.write("tall.png", png(1, 2, [60, 60, 60] * 2))
        run = ["--model", "model.bin", "--kind", "float32", "--pixel-type", "GRAY", "--resize"]
        for picture, rule, expected in [
            ("row.png", "bilinear", [20, 100, 180, 245]),
            ("row.png", "nearest", [40, 120, 200, 250]),
            # Weights of 1, 3, 3, 1 eighths; what is outside does not count.
            ("row.png", "antialias", [29, 100, 180, 239]),
            ("one.png", "bilinear", [90] * 4),  # no dark rim
            ("one.png", "antialias", [90] * 4),
            ("one.png", "letterbox", [0, 90, 0, 0]),
            ("tall.png", "letterbox", [0, 60, 0, 0]),
        ]:
            self.assertEqual(self.values_from(picture, *run, rule), expected, (picture, rule))

    def test_templates_exif_and_show(self):
        rgb = self.picture(140, 120)
        for name, width, height, shift in [("112", 112, 112, 0), ("96x112", 96, 112, 8), ("128", 128, 112, -8)]:
            side = 128 if name == "128" else height
            self.echo("1x3x%dx%d" % (side, width))
            got = self.values_from("picture.png", "--model", "model.bin", "--kind", "float32", "--pixel-type", "BGR2RGB",
                              "--template", name, "--output", "shown" + name, "--show", "--landmarks",
                              ",".join(str(x + (10, 5)[i % 2]) for i, x in enumerate(FACE)))
            at = 40 * width + 30
            self.assertEqual([got[c * side * width + at] for c in range(3)],
                             rgb[3 * (45 * 140 + 40 + shift):][:3], name)
            self.assertTrue(os.path.exists(self.path("shown%s/picture.input.png" % name)))
        # What is shown is what a second run takes for the model's input, but for the five crosses.
        self.echo("1x3x128x128")
        shown = self.values_from("shown128/picture.input.png", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB")
        different = [i % (128 * 128) for i in range(len(got)) if got[i] != shown[i]]
        self.assertEqual(len(set(different)), 5 * 9)
        self.assertIn(round(FACE[1]) * 128 + round(FACE[0]) + 8, different)
        # Row-wise 0 1 2 3 / 4 5 6 7, stored turned: orientation 6 is upright after 90 degrees clockwise.
        self.echo("1x3x4x2")
        exif = b"Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0%c\0\0\0"
        for orientation, upright in [(5, True), (6, True), (7, True), (8, True), (3, False)]:
            self.write("turned.jpg", JPEG[:2] + b"\xff\xe1" + struct.pack(">H", len(exif) + 1) + exif % orientation + JPEG[2:])
            self.corvane("run", "turned.jpg", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB",
                         "--exif", "true", status=0 if upright else 1, says=[] if upright else "the model takes 2 x 4")

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

    def test_bad_and_hostile_pictures(self):
        self.echo()
        whole = png(4, 2, [7] * 24)
        for name, content, says in [
            ("empty.png", b"", "neither"),
            ("text.png", b"hello", "neither"),
            ("cut.png", whole[:-30], "bad PNG"),
            ("head.png", whole[:8], "bad PNG"),
            ("endless.png", whole[:-12], "bad PNG"),
            ("crc.png", whole[:45] + bytes([whole[45] ^ 1]) + whole[46:], "bad PNG"),
            ("few.png", png(4, 1, [7] * 12, claimed=(4, 2)), "bad PNG"),
            ("wide.png", png(1, 1, [0] * 3, claimed=(900000, 900000)), "more than"),
            ("large.png", png(1, 1, [0] * 3, claimed=(8193, 8192)), "more than"),
            ("zero.png", png(1, 1, [0] * 3, claimed=(0, 1)), "bad PNG"),
            ("cut.jpg", JPEG[:-8], "bad JPEG"),
            ("head.jpg", JPEG[:60], "bad JPEG"),
            ("many.jpg", jpeg_of_scans(101), "more than 100 scans"),
            ("fewer.jpg", jpeg_of_scans(100), "the model takes 4 x 2"),
            ("huge.jpg", JPEG.replace(b"\x08\x00\x02\x00\x04\x03", b"\x08\xff\xdc\xff\xdc\x03"), "more than"),
            ("size.png", png(2, 4, [7] * 24), "the model takes 4 x 2"),
        ]:
            self.write(name, content)
            self.corvane("run", "--model", "model.bin", "--kind", "float32", "--pixel-type", "RGB", name, status=1,
                         says=[name + ": ", says])
        self.corvane("align", "cut.png", "--landmarks", ",".join(map(str, FACE)), "-o", "x.png", status=1, says="cut.png")
        self.assertFalse(os.path.exists(self.path("x.png")))

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

    def test_doubtful_landmarks_and_pictures_are_pointed_out(self):
        swapped = FACE[2:4] + FACE[0:2] + FACE[4:6] + FACE[8:10] + FACE[6:8]
        outside = [x - 300 for x in FACE]
        self.picture(120, 120)
        for order, code in [("little", b"II*\0"), ("big", b"MM\0*")]:
            entries = [(0x0100, 3, 1, 4), (0x0112, 3, 1, 6)]
            tiff = code + (8).to_bytes(4, order) + len(entries).to_bytes(2, order)
            for tag, kind, count, value in entries:
                tiff += (tag.to_bytes(2, order) + kind.to_bytes(2, order) + count.to_bytes(4, order) +
                         value.to_bytes(2, order) + b"\0\0")
            exif = b"Exif\0\0" + tiff
            for name, content in [(order, exif), (order + "_cut", exif[:-8])]:
                self.write(name + ".jpg", JPEG[:2] + b"\xff\xe1" + struct.pack(">H", len(content) + 2) + content + JPEG[2:])
        for picture, points, warning in [("picture.png", FACE, ""), ("picture.png", swapped, "swapped"),
                                         ("picture.png", outside, "no landmark lies inside the picture of 120 x 120"),
                                         ("little.jpg", outside, "EXIF orientation 6"),
                                         ("big.jpg", outside, "EXIF orientation 6")]:
            _, err = self.corvane("align", picture, "--landmarks", ",".join(map(str, points)), "-o", "face.png")
            self.assertIn(warning, err)
            self.assertEqual(err == "", warning == "")
        for order in "little", "big":
            _, err = self.corvane("align", order + "_cut.jpg", "--landmarks", ",".join(map(str, FACE)), "-o", "face.png")
            self.assertNotIn("EXIF", err)

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
