#!/usr/bin/env python3
"""pack and info from outside."""
import os

from tool_case import ONNX, PREFIX, ToolCase, main


def fields(data):
    """The top-level fields of a protobuf message, lengths below 128."""
    at = 0
    while at < len(data):
        tag, value = data[at], data[at + 1]
        end = at + 2 + (value if tag & 7 == 2 else 0)
        yield tag >> 3, data[at + 2:end]
        at = end


class PackTest(ToolCase):
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


if __name__ == "__main__":
    main()
