#!/usr/bin/env python3
"""What the tool makes of pictures: decoding, sizes, faces. Models that echo their input show it to the bit."""
import base64
import os
import struct
import zlib

from tool_case import FACE, ToolCase, chunk, main, png

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


class PicturesTest(ToolCase):
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
        # 8 to 6 has centres on edges, which Pillow puts on either side.
        self.echo("1x1x1x6")
        self.assertEqual(self.values_from("row.png", *run, "nearest"), [gray[i] for i in (0, 2, 3, 4, 5, 7)])

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


if __name__ == "__main__":
    main()
