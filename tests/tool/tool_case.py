"""What the tests of the command-line tool share: a folder for each test, models that are stated as text
for the simulated runtime, pictures, and calls of the tool.
"""
import ast
import json
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")
PREFIX = b"CORVANE-MODEL"
ONNX = b"\x08\x06" + b"\x12\x04make" + b"\x3a\x03\x12\x01g" + b"\x72\x08\x0a\x03own\x12\x01x"  # the least that is one
FACE = [38.2946, 51.6963, 73.5318, 51.5014, 56.0252, 71.7366, 41.5493, 92.3655, 70.7299, 92.2041]


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, rgb, claimed=None):
    rows = b"".join(b"\0" + bytes(rgb[3 * width * y:3 * width * (y + 1)]) for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", *(claimed or (width, height)), 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def read_npy(path):
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"\x93NUMPY\x01\x00"
    length = struct.unpack("<H", data[8:10])[0]
    assert (10 + length) % 64 == 0 and data[9 + length:10 + length] == b"\n"
    header = ast.literal_eval(data[10:10 + length].decode())
    assert header["descr"] == "<f4" and header["fortran_order"] is False
    return header["shape"], list(struct.unpack("<%df" % (len(data[10 + length:]) // 4), data[10 + length:]))


def write_npy(path, shape, values, descr="<f4", fortran=False):
    code = {"f2": "e", "f4": "f", "f8": "d", "u1": "B", "i2": "h", "b1": "?"}[descr[1:]]
    header = str({"descr": descr, "fortran_order": fortran, "shape": tuple(shape)})
    header += " " * (63 - (10 + len(header)) % 64) + "\n"
    order = ">" if descr[0] == ">" else "<"
    with open(path, "wb") as file:
        file.write(b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header.encode()
                   + struct.pack(order + str(len(values)) + code, *values))


class ToolCase(unittest.TestCase):
    programs = ()  # the paths of corvane and face_similarity
    emulator = ()  # what runs them, and its arguments

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.random = random.Random(1)

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, name, content):
        with open(os.path.join(os.fsencode(self.folder.name), os.fsencode(name)), "wb") as file:
            file.write(content.encode() if isinstance(content, str) else content)
        return self.path(os.fsdecode(name))

    def model(self, tensors, name="model.bin"):
        return self.write(name, PREFIX + b"CORVANE-SIM\n" + tensors.encode())

    def echo(self, shape="1x3x2x4", kind="float32", extra=""):
        return self.model("input image %s %s %s\noutput echo float32 %s echo=0\n" % (kind, shape, extra, shape))

    def picture(self, width=4, height=2, name="picture.png"):
        rgb = [self.random.randrange(256) for _ in range(3 * width * height)]
        self.write(name, png(width, height, rgb))
        return rgb

    def corvane(self, *arguments, status=0, says=()):
        done = subprocess.run([*self.emulator, self.programs[0], *arguments], cwd=self.folder.name, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, check=False)
        out, err = done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")
        if status is not None:
            self.assertEqual(done.returncode, status, (arguments, out, err))
        for text in [says] if isinstance(says, str) else says:
            self.assertIn(text, err if status else out, arguments)
        return out, err

    def values_from(self, *arguments):
        """What the first output of a run of one picture holds."""
        self.corvane("run", *arguments, "--json", "result.json")
        with open(self.path("result.json"), encoding="utf-8") as file:
            return json.load(file)["images"][0]["outputs"][0]["values"]


def main():
    """NAME_test.py CORVANE FACE_SIMILARITY [EMULATOR ARGUMENT...]"""
    ToolCase.programs = [os.path.abspath(path) for path in sys.argv[1:3]]
    ToolCase.emulator = sys.argv[3:]
    del sys.argv[1:]
    unittest.main()
