#!/usr/bin/env python3
"""explain from outside: seeded mistakes in the settings, each of which must be named.

A reference is what `run` gives with settings that are right, or for a picture that was changed as the
mistake says; explain then gets settings that are wrong. CORVANE_EXPLAIN_CASES says how many mistakes are
made (60 unless given; scripts/test explain makes 300).
"""
import math
import os
import random

from tool_case import FACE, ToolCase, main, png, write_npy
from onnx_networks import Network

CASES = int(os.environ.get("CORVANE_EXPLAIN_CASES", "60"))
WIDTH, HEIGHT = 150, 170
IMAGENET = ([123.675, 116.28, 103.53], [1 / 58.395, 1 / 57.12, 1 / 57.375])


def photograph(seed):
    """Blobs of colour, with edges and grain: R, G, B of each pixel."""
    rng = random.Random(seed)
    blobs = [(rng.uniform(0, WIDTH), rng.uniform(0, HEIGHT), rng.uniform(8, 50), [rng.uniform(-110, 110) for _ in range(3)])
             for _ in range(14)]
    ground = [rng.uniform(60, 190) for _ in range(3)]
    pixels = []
    for y in range(HEIGHT):
        for x in range(WIDTH):
            colour = list(ground)
            for i, (cx, cy, radius, tint) in enumerate(blobs):
                distance = math.hypot(x - cx, y - cy) / radius
                weight = math.exp(-distance * distance) if i % 2 else (distance < 1)
                for c in range(3):
                    colour[c] += weight * tint[c]
            grain = rng.uniform(-6, 6)
            pixels.append([min(255, max(0, round(v + grain))) for v in colour])
    return pixels


def text(numbers):
    return ",".join("%.9g" % number for number in numbers)


class Settings:
    def __init__(self, model, landmarks, means, scales, pixel_type="RGB"):
        self.values = {"kind": "float32", "pixel_type": pixel_type, "means": text(means), "scales": text(scales),
                       "resize": "bilinear"}
        self.model, self.landmarks = model, landmarks

    def numbers(self, key):
        return [float(number) for number in self.values[key].split(",")]

    def changed(self, **values):
        copy = Settings(self.model, self.landmarks, [0], [1])
        copy.values = {**self.values, **{key: text(v) if isinstance(v, list) else v for key, v in values.items()
                                         if key != "landmarks"}}
        copy.landmarks = values.get("landmarks", self.landmarks)
        return copy

    def ini(self, landmarks=None):
        lines = ["[model]", "file = " + self.model, "[input]"] + ["%s = %s" % item for item in self.values.items()]
        marks = landmarks or self.landmarks
        return "\n".join(lines + (["[landmarks]", "photo.png = " + text(marks)] if marks else [])) + "\n"


def swapped(l):
    return l[2:4] + l[0:2] + l[4:6] + l[8:10] + l[6:8]


# What is wrong, and how the tool calls it. Each gets the right settings and gives the wrong ones.
def reversed_list(key):
    return lambda right: right.changed(**{key: right.numbers(key)[::-1]})


def scaled(**factors):
    return lambda right: right.changed(**{key: [factor * number for number in right.numbers(key)]
                                          for key, factor in factors.items()})


OTHER = {"RGB": "BGR", "BGR": "RGB", "BGR2RGB": "BGR", "RGB2BGR": "RGB"}
SETTING_MISTAKES = {
    "channels": (lambda r: r.changed(pixel_type=OTHER[r.values["pixel_type"]]), "the picture's channels are in the other order"),
    "means order": (reversed_list("means"), "the means are in the other order"),
    "scales order": (reversed_list("scales"), "the scales are in the other order"),
    "both orders": (lambda r: reversed_list("scales")(reversed_list("means")(r)), "means and scales are in the other order"),
    "means left out": (lambda r: r.changed(means=[0] * 3), "the means are 123.675,116.28,103.53"),
    "not normalised": (lambda r: r.changed(means=[0] * 3, scales=[1] * 3), "the normalisation is another"),
    "divisors": (lambda r: r.changed(scales=[1 / s for s in r.numbers("scales")]), "the scales are divisors"),
    "0 to 1": (scaled(means=1 / 255, scales=255), "means and scales are meant for pictures of 0 to 1"),
    "0 to 1, divisors": (lambda r: r.changed(means=[m / 255 for m in r.numbers("means")],
                                             scales=[1 / (255 * s) for s in r.numbers("scales")]),
                         "means and divisors are meant for pictures of 0 to 1"),
    "means of 0 to 1": (scaled(means=1 / 255), "the means are meant for pictures of 0 to 1"),
    "scales of 0 to 1": (scaled(scales=255), "the scales are 255 times smaller"),
    "antialias": (lambda r: r.changed(resize="antialias"), "the picture is resized bilinear, without averaging"),
    "nearest": (lambda r: r.changed(resize="nearest"), "the picture is resized bilinear, without averaging"),
    "letterbox": (lambda r: r.changed(resize="letterbox"), "the picture is resized bilinear, without averaging"),
    "landmarks": (lambda r: r.changed(landmarks=swapped(r.landmarks)), "left and right of the landmarks are exchanged"),
    "template": (lambda r: r.changed(template="128-scaled"), "the face is aligned by the template 128"),
    "kind": (lambda r: r.changed(kind="float16"), "kind float16 does not fit"),
}


def mapped(function):
    return lambda pixels: [pixels[function(x, y)[1] * WIDTH + function(x, y)[0]] for y in range(HEIGHT) for x in range(WIDTH)]


def gray(pixel):
    return [(19595 * pixel[0] + 38470 * pixel[1] + 7471 * pixel[2] + 32768) >> 16] * 3


# What is different in the picture where the reference comes from.
PICTURE_MISTAKES = {
    "mirrored": (mapped(lambda x, y: (WIDTH - 1 - x, y)), "the picture is mirrored, left to right"),
    "upside down": (mapped(lambda x, y: (WIDTH - 1 - x, HEIGHT - 1 - y)), "the picture is turned by 180 degrees"),
    "gray": (lambda pixels: [gray(pixel) for pixel in pixels], "the picture is gray: 0.299 R"),
    "average": (lambda pixels: [[(sum(pixel) + 1) // 3] * 3 for pixel in pixels], "the picture is gray: the average"),
}
PAIRS = [("channels", "means order"), ("channels", "divisors"), ("means order", "scales order"), ("antialias", "channels"),
         ("landmarks", "channels"), ("letterbox", "means left out"), ("channels", "mirrored"), ("divisors", "gray")]


class ExplainTest(ToolCase):
    def setUp(self):
        super().setUp()
        marks = [x + (24, 30)[i % 2] for i, x in enumerate(FACE)]
        self.networks = []
        for name, network, landmarks in [
            ("face", Network(1, [1, 3, 112, 112], [(5, 4, 8), (3, 2, 16), (3, 2, 32)]), marks),
            ("scene", Network(2, [1, 3, 64, 96], [(3, 2, 8), (3, 2, 16)], is_map=True), None),
            ("large", Network(3, [1, 3, 128, 128], [(7, 4, 6), (3, 4, 24)]), marks),
        ]:
            self.write(name + ".onnx", network.bytes())
            self.corvane("pack", name + ".onnx", "-o", name + ".bin")
            self.networks.append((name + ".bin", landmarks))
        info, err = self.corvane("info", "face.bin", status=None)
        if "simulator was built without" in err:
            self.skipTest("this simulated runtime does not execute ONNX models")
        self.pictures = [photograph(seed) for seed in range(10 if CASES >= 300 else 2)]

    def right_settings(self, rng):
        model, landmarks = rng.choice(self.networks)
        means, scales = rng.choice([IMAGENET, ([104, 117, 123], [0.02, 0.018, 0.016])])
        right = Settings(model, landmarks, means, scales, rng.choice(["RGB", "BGR", "BGR2RGB", "RGB2BGR"]))
        if model == "large.bin":
            right.values["template"] = "128"
        return right

    def photo(self, pixels):
        self.write("photo.png", png(WIDTH, HEIGHT, [v for pixel in pixels for v in pixel]))

    def reference(self, settings, pixels):
        self.photo(pixels)
        self.write("right.ini", settings.ini())
        self.corvane("run", "--config", "right.ini", "photo.png", "--npy", "reference")

    @staticmethod
    def fits(name, settings):
        rows = {"antialias": not settings.landmarks, "nearest": not settings.landmarks, "letterbox": not settings.landmarks,
                "landmarks": settings.landmarks, "template": "template" in settings.values,
                "mirrored": not settings.landmarks, "upside down": not settings.landmarks}
        # The usual constants alone are known where none are given.
        is_usual = settings.numbers("means")[0] == IMAGENET[0][0]
        return rows.get(name, is_usual or name not in ("means left out", "not normalised"))

    def make(self, rng, names):
        """Settings that are wrong in these ways, beside a reference that is right. None: they do not apply."""
        right = self.right_settings(rng)
        pixels = rng.choice(self.pictures)
        if not all(self.fits(name, right) for name in names):
            return None
        changed = pixels
        wrong = right
        for name in names:
            if name in PICTURE_MISTAKES:
                changed = PICTURE_MISTAKES[name][0](changed)
            else:
                wrong = SETTING_MISTAKES[name][0](wrong)
        self.reference(right, changed)
        self.photo(pixels)
        self.write("wrong.ini", wrong.ini())
        return right, wrong

    def explain(self, status):
        return self.corvane("explain", "--config", "wrong.ini", "photo.png", "--expect", "reference/photo.0.npy",
                            status=status)[0]

    def correct(self, wrong, out):
        """The wrong settings with the lines that the tool printed."""
        corrected = wrong.changed()
        section = ""
        for line in out.partition("change in the settings:\n")[2].splitlines():
            line = line.strip()
            if line.startswith("["):
                section = line
            elif section == "[input]" and not line.startswith("#"):
                key, _, value = line.partition(" = ")
                corrected.values[key] = value
            elif section == "[landmarks]" and not line.startswith("#"):
                corrected.landmarks = [float(number) for number in line.partition(" = ")[2].split(",")]
        return corrected

    def test_seeded_mistakes_are_named_and_the_lines_mend_them(self):
        rng = random.Random(7)
        kinds = [(name,) for name in [*SETTING_MISTAKES, *PICTURE_MISTAKES]]
        made, missed = 0, []
        while made < CASES:
            names = kinds[made % len(kinds)] if made % 4 else rng.choice(PAIRS)
            case = self.make(rng, names)
            if case is None:
                continue
            made += 1
            out = self.explain(1)
            words = [{**SETTING_MISTAKES, **PICTURE_MISTAKES}[name][1] for name in names]
            if not all(word in out.partition("found")[2].partition("change in")[0] for word in words):
                if not self.mends(case, out, names):
                    missed.append((names, case[0].values, out))
            elif not any(name in PICTURE_MISTAKES for name in names) and not self.mends(case, out, names):
                missed.append((names, "the lines do not mend it", out))
        self.assertLessEqual(len(missed), CASES * 0.05, missed)

    def mends(self, case, out, names):
        if any(name in PICTURE_MISTAKES for name in names):
            return False
        self.write("corrected.ini", self.correct(case[1], out).ini())
        done, err = self.corvane("run", "--config", "corrected.ini", "photo.png", "--expect", "reference", status=None)
        return "all of 1 within" in done

    def test_nothing_is_named_where_nothing_is_wrong(self):
        rng = random.Random(11)
        for _ in range(max(5, CASES // 5)):
            self.make(rng, ())
            self.assertIn("nothing is wrong", self.explain(0))

    def test_by_the_tensor_that_training_feeds(self):
        width, height = 96, 64
        pixels = [pixel for y in range(height) for pixel in self.pictures[0][y * WIDTH:y * WIDTH + width]]
        self.write("photo.png", png(width, height, [v for pixel in pixels for v in pixel]))
        means, scales = IMAGENET
        self.write("wrong.ini", Settings("scene.bin", None, means, scales).ini())

        def planes(picture, m=means, s=scales):
            return [(pixel[c] - m[c]) * s[c] for c in range(3) for pixel in picture]

        flat = [v for pixel in pixels for v in pixel]
        bgr = [pixel[::-1] for pixel in pixels]
        right = planes(pixels)
        chw, hwc = (1, 3, height, width), (height, width, 3)
        interleaved = [(v - means[i % 3]) * scales[i % 3] for i, v in enumerate(flat)]
        brighter = planes([[pixel[0] - 9.0, pixel[1], pixel[2]] for pixel in bgr])
        for name, shape, values, status, says, lines in [
            ("right", chw, right, 0, "nothing is wrong", ""),
            ("right, 3 dimensions", chw[1:], right, 0, "nothing is wrong", ""),
            ("right, channels last", hwc, interleaved, 0, "nothing is wrong", ""),
            ("bytes as they lie", chw, interleaved, 1, "fed as they lie (NHWC", "# export the model with channels first"),
            ("twice", chw, [(v - means[i // 6144]) * scales[i // 6144] for i, v in enumerate(right)], 1, "normalised twice", "means = "),
            ("not at all", chw, planes(pixels, [0] * 3, [1] * 3), 1, "not normalised at all", "means = 0,0,0\n  scales = 1,1,1"),
            ("scaled before", chw, planes(pixels, [m / s for m, s in zip(means, scales)]), 1, "before the means are subtracted", ""),
            ("mirrored", chw, planes([pixels[i // width * width + width - 1 - i % width] for i in range(len(pixels))]), 1,
             "mirrored, left to right", "# turn or mirror the picture before"),
            ("gray", chw, planes([gray(pixel) for pixel in pixels]), 1, "gray: 0.299 R", "# hand over a picture that is made gray"),
            ("a pair", chw, planes(bgr, [0] * 3, [1 / 255] * 3), 1, "no means, scales 1/255", "pixel_type = BGR"),
            ("constants of its own", chw, planes(bgr, [10, 20, 40], [0.5, 0.25, 0.125]), 1, "other means and scales", "means = 10,20,40\n  scales = 0.5,0.25,0.125"),
            ("another brightness", chw, brighter, 1, "other means and scales", "pixel_type = BGR\n  means = 132.675,"),
            ("another picture", chw, planes([pixels[(i * i) % 6143] for i in range(6144)]), 1, "nothing that was tried", ""),
        ]:
            with self.subTest(name):
                write_npy(self.path("input.npy"), shape, values)
                out, _ = self.corvane("explain", "-c", "wrong.ini", "photo.png", "--expect-input", "input.npy", status=status)
                self.assertIn(says, out)
                self.assertIn(lines, out)
        write_npy(self.path("input.npy"), (3, width, height), right)
        for arguments, says in [(["--expect-input", "input.npy"], "input.npy: is 3 x 96 x 64, the model's input 3 x 64 x 96"),
                                (["--expect", "input.npy"], "input.npy: is 3 x 96 x 64, and no output"),
                                (["--expect", "input.npy", "--expect-input", "input.npy"], "either --expect"), ([], "either --expect")]:
            self.corvane("explain", "-c", "wrong.ini", "photo.png", *arguments, status=2, says=says)

    def test_what_the_model_does_by_itself(self):
        """The model's own normalisation beside that of the settings, and kinds that cannot hold the values."""
        means, scales = IMAGENET
        self.corvane("pack", "scene.onnx", "-o", "own.bin", "--mean", text(means), "--scale", text(scales))
        self.corvane("pack", "scene.onnx", "-o", "fixed.bin", "--type", "int16", "--fl", "15")
        plain = Settings("scene.bin", None, means, scales)
        for wrong, says, lines in [
            (Settings("own.bin", None, means, scales), "own normalisation is ", "means = 0,0,0\n  scales = 1,1,1"),
            (Settings("own.bin", None, [0] * 3, [1] * 3).changed(pixel_type="BGR"), "channels", "pixel_type = RGB"),
            (Settings("fixed.bin", None, means, scales).changed(kind="int16"), "rounded or wrapped by kind int16", "corvane kinds"),
        ]:
            self.reference(plain, self.pictures[1])
            self.write("wrong.ini", wrong.ini())
            out = self.explain(1)
            self.assertIn(says, out)
            self.assertIn(lines, out)


if __name__ == "__main__":
    main()
