#!/usr/bin/env python3
"""What the simulated runtime makes of networks that OpenCV by itself gets wrong or does not take: the right
answer, or a line with the node and a cure."""
import math

from tool_case import ToolCase, main
from onnx_networks import halves, model, node, tensor, value_info

SHAPE = [1, 3, 2, 4]


def softmax(row):
    exponentials = [math.exp(v - max(row)) for v in row]
    return [v / sum(exponentials) for v in exponentials]


def matrix(values, rows, columns):
    return [values[row * columns:(row + 1) * columns] for row in range(rows)]


def product(a, b):
    return [[sum(x * y for x, y in zip(row, column)) for column in zip(*b)] for row in a]


def average(planes, counts_padding):
    """3 x 3, padded by 1."""
    result = []
    for plane in planes:
        for y in range(2):
            for x in range(4):
                near = [plane[j * 4 + i] for j in range(max(0, y - 1), min(2, y + 2))
                        for i in range(max(0, x - 1), min(4, x + 2))]
                result.append(sum(near) / (9 if counts_padding else len(near)))
    return result


def doubled(plane, y, x):
    """One of 4 x 8 pixels, between the four nearest of 2 x 4."""
    def near(place, size):
        centre = min(size - 1, max(0, (place + 0.5) / 2 - 0.5))
        low = min(int(centre), size - 2)
        return low, centre - low
    (top, down), (left, right) = near(y, 2), near(x, 4)
    return sum(plane[(top + j) * 4 + left + i] * (down if j else 1 - down) * (right if i else 1 - right)
               for j in range(2) for i in range(2))


def normalised(row):
    mean = sum(row) / len(row)
    deviation = math.sqrt(sum((v - mean) ** 2 for v in row) / len(row) + 1e-5)
    return [(v - mean) / deviation for v in row]


class NetworksTest(ToolCase):
    def setUp(self):
        super().setUp()
        rgb = self.picture()
        # As settings, so that the values are small and of both signs.
        self.values = [(v - 128) / 64 for c in range(3) for v in rgb[c::3]]
        self.planes = matrix(self.values, 3, 8)
        self.write("probe.onnx", model([node("Relu", ["image"], "y")], [], [value_info("image", SHAPE)], [value_info("y", SHAPE)]))
        self.corvane("pack", "probe.onnx", "-o", "probe.bin")
        if "simulator was built without" in self.corvane("info", "probe.bin", status=None)[1]:
            self.skipTest("this simulated runtime does not execute ONNX models")

    def pack(self, nodes, tensors=(), shape=SHAPE, **options):
        self.write("net.onnx", model(nodes, tensors, [value_info("image", SHAPE)], [value_info("y", shape)], **options))
        self.corvane("pack", "net.onnx", "-o", "net.bin")

    def test_right(self):
        image = ["image"]
        attention = [node("Reshape", ["image", "rows"], "q"), node("Transpose", ["q"], "k", perm=[0, 2, 1]),
                     node("MatMul", ["q", "k"], "s"), node("Div", ["s", "root"], "t"),
                     node("Softmax", ["t"], "p", axis=-1), node("MatMul", ["p", "q"], "y")]
        scores = product(self.planes, [list(column) for column in zip(*self.planes)])
        attended = product([softmax([v / 8 for v in row]) for row in scores], self.planes)
        length = [math.sqrt(sum(self.planes[c][i] ** 2 for c in range(3))) for i in range(8)]
        by_channels = [self.planes[c][i] / length[i] for c in range(3) for i in range(8)]
        low, high = tensor("low", [], [-0.5]), tensor("high", [], [1.0])
        axes = tensor("axes", [1], [1])
        twice = tensor("twice", [4], [1.0, 1.0, 2.0, 2.0])
        nearest = [self.planes[c][y // 2 * 4 + x // 2] for c in range(3) for y in range(4) for x in range(8)]
        linear = [doubled(plane, y, x) for plane in self.planes for y in range(4) for x in range(8)]
        padded = {"kernel_shape": [3, 3], "pads": [1] * 4}
        tenth = 0.0999755859375  # as half
        diagonal = [2.0, 0.0, 0.0, 0.0, -3.0, 0.0, 0.0, 0.0, 0.1]
        # As PyTorch writes chunk(2, 3): from the width, how wide a part is.
        chunks = [node("Shape", image, "all"), node("Gather", ["all", "three"], "width", axis=0), node("Add", ["width", "one"], "more"),
                  node("Div", ["more", "two"], "part"), node("Mul", ["part", "one"], "middle"),
                  node("Slice", ["image", "zero", "middle", "three"], "left"), node("Mul", ["part", "two"], "end"),
                  node("Slice", ["image", "middle", "end", "three"], "right"), node("Sub", ["left", "right"], "y")]
        gemm = [node("Reshape", ["image", "square"], "q"), node("Gemm", ["q", "q", "bias"], "y", alpha=0.5, beta=2.0, transB=1)]
        for name, nodes, tensors, options, expected in [
            ("attention", attention, [tensor("rows", [3], [1, 3, 8]), tensor("root", [], [8.0])], {"shape": [1, 3, 8]},
             sum(attended, [])),
            ("bounds of Clip as inputs", [node("Clip", ["image", "low", "high"], "y")], [low, high], {},
             [min(1, max(-0.5, v)) for v in self.values]),
            ("one bound", [node("Clip", ["image", "", "high"], "y")], [high], {}, [min(1, v) for v in self.values]),
            ("bounds of a Constant node, in a chain", [node("Identity", ["low"], "same"), node("Identity", ["same"], "again"),
                                                       node("Clip", ["image", "again"], "y")], [low], {},
             [max(-0.5, v) for v in self.values]),
            ("Identity of a weight", [node("Identity", ["w"], "copy"), node("Conv", ["image", "copy"], "y", kernel_shape=[1, 1])],
             [tensor("w", [3, 3, 1, 1], [2.0, 0.0, 0.0, 0.0, 3.0, 0.0, 0.0, 0.0, 4.0])], {},
             [(2, 3, 4)[i // 8] * v for i, v in enumerate(self.values)]),
            ("averages without padding", [node("AveragePool", image, "y", **padded)], [], {}, average(self.planes, False)),
            ("the same of PyTorch", [node("AveragePool", image, "y", **padded)], [], {"producer": "pytorch"}, average(self.planes, False)),
            ("averages with padding", [node("AveragePool", image, "y", count_include_pad=1, **padded)], [], {}, average(self.planes, True)),
            ("Softmax without an axis", [node("Softmax", image, "y")], [], {},
             sum((softmax(self.values[i:i + 4]) for i in range(0, 24, 4)), [])),
            ("Softmax over a flat row", [node("Flatten", image, "flat"), node("Softmax", ["flat"], "y")], [],
             {"opset": 11, "shape": [1, 24]}, softmax(self.values)),
            ("length over channels", [node("ReduceL2", image, "n", axes=[1], keepdims=1), node("Div", ["image", "n"], "y")], [], {},
             by_channels),
            ("length written out", [node("Mul", ["image", "image"], "q"), node("ReduceSum", ["q", "axes"], "s", keepdims=1),
                                    node("Sqrt", ["s"], "n"), node("Div", ["image", "n"], "y")], [axes], {}, by_channels),
            ("Unsqueeze by an input", [node("Unsqueeze", ["image", "axes"], "y")], [axes], {"shape": [1, 1, 3, 2, 4]}, self.values),
            ("twice the size by the nearest", [node("Resize", ["image", "", "twice"], "y", mode="nearest",
                                                    coordinate_transformation_mode="asymmetric", nearest_mode="floor")],
             [twice], {"shape": [1, 3, 4, 8]}, nearest),
            ("the same by Upsample", [node("Upsample", ["image", "twice"], "y", mode="nearest")], [twice],
             {"shape": [1, 3, 4, 8], "opset": 9}, nearest),
            ("twice the size, linear", [node("Resize", ["image", "", "twice"], "y", mode="linear",
                                             coordinate_transformation_mode="half_pixel")], [twice], {"shape": [1, 3, 4, 8]}, linear),
            ("instances normalised", [node("InstanceNormalization", ["image", "ones", "zeros"], "y", epsilon=1e-5)],
             [tensor("ones", [3], [1.0] * 3), tensor("zeros", [3], [0.0] * 3)], {}, sum((normalised(row) for row in self.planes), [])),
            ("a shape that is computed", [node("Shape", ["image"], "all"), node("Gather", ["all", "first"], "batch", axis=0),
                                          node("Unsqueeze", ["batch", "front"], "batch1"),
                                          node("Concat", ["batch1", "rest"], "wanted", axis=0),
                                          node("Reshape", ["image", "wanted"], "y")],
             [tensor("first", [], [0]), tensor("front", [1], [0]), tensor("rest", [1], [-1])], {"shape": [1, 24]}, self.values),
            ("a mean that is expanded", [node("GlobalAveragePool", ["image"], "mean"), node("Expand", ["mean", "whole"], "y")],
             [tensor("whole", [4], SHAPE)], {}, [sum(row) / 8 for row in self.planes for _ in range(8)]),
            ("Max of one", [node("Max", image, "y")], [], {}, self.values),
            ("Min with a number", [node("Min", ["high", "image"], "y")], [high], {}, [min(1, v) for v in self.values]),
            ("Concat of one", [node("Concat", image, "y", axis=1)], [], {}, self.values),
            ("Concat with a constant", [node("Concat", ["image", "plane"], "c", axis=1), node("Relu", ["c"], "y")],
             [tensor("plane", [1, 1, 2, 4], [0.5] * 8)], {"shape": [1, 4, 2, 4]}, [max(0, v) for v in self.values] + [0.5] * 8),
            ("a number over a value", [node("Exp", image, "e"), node("Div", ["high", "e"], "y")], [high], {},
             [math.exp(-v) for v in self.values]),
            ("a small norm", [node("Mul", ["image", "small"], "s"), node("ReduceL2", ["s"], "n", axes=[1], keepdims=1),
                              node("Div", ["s", "n"], "y")], [tensor("small", [], [1e-9])], {}, by_channels),
            ("a row's norm", [node("Flatten", image, "row"), node("ReduceL2", ["row"], "n", axes=[1], keepdims=1),
                              node("Div", ["row", "n"], "y")], [], {"shape": [1, 24]}, [v / math.sqrt(sum(v * v for v in self.values)) for v in self.values]),
            ("a mean taken away", [node("ReduceMean", image, "m", axes=[-1], keepdims=1), node("Sub", ["image", "m"], "y")], [], {},
             [v - sum(self.values[i // 4 * 4:i // 4 * 4 + 4]) / 4 for i, v in enumerate(self.values)]),
            ("halves by chunk", chunks, [tensor(n, [1], [v]) for n, v in (("zero", 0), ("one", 1), ("two", 2), ("three", 3))],
             {"shape": [1, 3, 2, 2]}, [self.values[i] - self.values[i + 2] for i in range(24) if i % 4 < 2]),
            ("Gemm of computed matrices", gemm, [tensor("square", [2], [3, 8]), tensor("bias", [1], [1.5])], {"shape": [3, 3]},
             [sum(0.5 * v * w for v, w in zip(a, b)) + 3 for a in self.planes for b in self.planes]),
            ("Gemm without its sum", [node("Reshape", ["image", "square"], "q"), node("Gemm", ["q", "q", "bias"], "y", beta=0.0, transA=1)],
             [tensor("square", [2], [3, 8]), tensor("bias", [8], [1.0] * 8)], {"shape": [8, 8]}, sum(product(list(zip(*self.planes)), self.planes), [])),
            ("weights in half precision", [node("Cast", ["h"], "w", to=1), node("Conv", ["image", "w"], "y", kernel_shape=[1, 1])],
             [halves("h", [3, 3, 1, 1], diagonal)], {}, [(2, -3, tenth)[i // 8] * v for i, v in enumerate(self.values)]),
            ("factors in half precision", [node("Constant", [], "h", value=halves("", [1, 3, 1, 1], [2.0, -3.0, 0.1], is_packed=True)),
                                           node("Mul", ["image", "h"], "y")], [], {}, [(2, -3, tenth)[i // 8] * v for i, v in enumerate(self.values)]),
            ("a scale that is written 1 x 3 x 1 x 1", [node("Mul", ["image", "s"], "y")], [tensor("s", [1, 3, 1, 1], [1.0, 2.0, 3.0])], {},
             [v * (i // 8 + 1) for i, v in enumerate(self.values)]),
        ]:
            with self.subTest(name):
                self.pack(nodes, tensors, **options)
                got = self.answer()
                self.assertEqual(len(got), len(expected))
                self.assertLess(max(abs(a - b) for a, b in zip(got, expected)), 2e-5)

    def answer(self):
        return self.values_from("--model", "net.bin", "--kind", "float32", "--pixel-type", "RGB", "--means", "128",
                                   "--scales", "1/64", "picture.png")

    def test_refused_with_the_node_and_a_cure(self):
        image = ["image"]
        pool = {"kernel_shape": [2, 2]}
        constants = [tensor("w", [3, 3, 2, 2], [0.5] * 36), tensor("row", [4], [0.5, 1.0, 2.0, 3.0]), tensor("one", [1], [1]),
                     tensor("last", [1], [-1]), tensor("before", [1], [-3]), tensor("flat", [3], [1, 3, 8]),
                     tensor("planes", [4], [1, 2, 6, 2]), tensor("pair", [2], [0.5, 1.0]),
                     tensor("scales", [4], [1.0, 1.0, 1.6, 1.6])]
        for nodes, options, node_says, cure in [
            ([node("Nonsense", image, "y")], {}, "'y' (Nonsense)", "not among the operators"),
            ([node("LSTM", image, "y")], {}, "(LSTM)", "not among the operators"),
            ([node("MaxPool", image, "y", auto_pad="SAME_LOWER", **pool)], {}, "(MaxPool)", "explicit pads"),
            ([node("MaxPool", image, "y", dilations=[2, 2], **pool)], {}, "(MaxPool)", "dilations"),
            ([node("MaxPool", image, "m y", **pool)], {}, "'m' (MaxPool)", "indices"),
            ([node("AveragePool", image, "a", count_include_pad=1, kernel_shape=[3, 3], pads=[1] * 4),
              node("AveragePool", ["a"], "y", kernel_shape=[3, 3], pads=[1] * 4)], {}, "'y' (AveragePool)", "others do not"),
            ([node("Conv", ["image", "w"], "y", auto_pad="SAME_LOWER", kernel_shape=[2, 2])], {}, "(Conv)", "explicit pads"),
            ([node("Softmax", image, "y", axis=1)], {"opset": 11}, "(Softmax)", "opset 13"),
            ([node("Softmax", image, "y")], {"opset": 9}, "(Softmax)", "opset 13"),
            ([node("Cast", image, "i", to=7), node("Cast", ["i"], "y", to=1)], {}, "'i' (Cast)", "Floor or Round"),
            ([node("Dropout", image, "d y")], {}, "(Dropout)", "evaluation mode"),
            ([node("Upsample", ["image", "w"], "y", mode="linear")], {"opset": 9}, "(Upsample)", "Resize"),
            ([node("Resize", ["image", "", "w"], "y", mode="cubic")], {}, "(Resize)", "neither linear nor nearest"),
            ([node("Relu", image, "y")], {"shape": [1, 3, 4, 2]}, "output 'y'", "other sizes than the file declares"),
            ([node("Greater", ["image", "row"], "b"), node("Cast", ["b"], "y", to=1)], {}, "'b' (Greater)", "compares with a constant"),
            ([node("Max", ["image", "row"], "y")], {}, "(Max)", "not one number"),
            ([node("Gather", ["image", "one"], "y", axis=1)], {}, "(Gather)", "single index"),
            ([node("Slice", ["image", "last", "before", "one", "last"], "y")], {}, "(Slice)", "from the front"),
            ([node("AveragePool", image, "y", ceil_mode=1, pads=[1] * 4, strides=[2, 2], **pool)], {}, "(AveragePool)", "ceil_mode"),
            ([node("MaxPool", image, "y", ceil_mode=1, strides=[3, 3], kernel_shape=[1, 1])], {"shape": [1, 3, 2, 3]}, "(MaxPool)", "windows beyond"),
            ([node("ConvTranspose", ["image", "w"], "y", dilations=[2, 2], **pool)], {}, "(ConvTranspose)", "dilations"),
            ([node("ConvTranspose", ["image", "w"], "y", pads=[2] * 4, **pool)], {}, "(ConvTranspose)", "pads more than its kernel"),
            ([node("ConvTranspose", ["image", "w"], "y")], {}, "(ConvTranspose)", "kernel_shape"),
            ([node("Reshape", ["image", "flat"], "f"), node("MaxPool", ["f"], "y", kernel_shape=[2], pads=[1, 0])], {}, "(MaxPool)", "Pad before"),
            ([node("GlobalAveragePool", image, "m"), node("Max", ["image", "m"], "y")], {}, "(Max)", "several sizes"),
            ([node("GlobalAveragePool", image, "m"), node("Exp", ["m"], "e"), node("Sub", ["image", "e"], "y")], {}, "(Sub)", "different sizes"),
            ([node("Reshape", ["image", "planes"], "f"), node("Add", ["f", "pair"], "y")], {"shape": [1, 2, 6, 2]}, "'y' (Add)", "more than one axis"),
            ([node("Resize", ["image", "", "scales"], "y", mode="linear", coordinate_transformation_mode="half_pixel")], {"shape": [1, 3, 3, 6]}, "(Resize)", "whole sizes"),
            ([node("PRelu", ["image", "row"], "y")], {}, "(PRelu)", "one for each channel"),
            ([node("ArgMax", image, "a", axis=1), node("Div", ["a", "w"], "y")], {}, "'y' (Div)", "whole numbers"),
        ]:
            self.pack(nodes, constants, **options)
            _, err = self.corvane("info", "net.bin", status=1, says=[node_says, cure])
            self.assertEqual(err.count("\n"), 2, err)  # the runtime's line, and the tool's

    def test_info_lists_every_node(self):
        self.pack([node("LSTM", ["image"], "a"), node("Relu", ["a"], "b"), node("Det", ["b"], "y")])
        out, err = self.corvane("info", "net.bin", status=1, says="'a' (LSTM) is not among")
        listed = out.split("what the simulated runtime cannot run\n")[1].splitlines()
        self.assertEqual([line.split(" is not among")[0] for line in listed], ["  node 'a' (LSTM)", "  node 'y' (Det)"])
        self.assertEqual(err.count("\n"), 2, err)

    def test_info_says_what_run_cannot(self):
        relu = [node("Relu", ["image"], "y")]
        for inputs, problem in [
            ([[2, 3, 2, 4]], "takes 2 pictures at once"),
            ([[1, 2, 4, 3]], "takes 2 channel(s), but pictures have 1 or 3; 1 x 2 x 4 x 3 looks like NHWC"),
            ([[1, 3, 2, 4], [1, 3, 2, 4]], "2 inputs; only models with one can run"),
            ([[1, 1, 2, 4]], None), ([[1, 8]], None),
        ]:
            nodes = relu if len(inputs) == 1 else [node("Add", ["image", "image1"], "y")]
            infos = [value_info("image%s" % (i or ""), shape) for i, shape in enumerate(inputs)]
            self.write("net.onnx", model(nodes, [], infos, [value_info("y", inputs[0])]))
            self.corvane("pack", "net.onnx", "-o", "net.bin")
            out, _ = self.corvane("info", "net.bin")
            self.assertEqual("corvane run cannot" in out, problem is not None, out)
            self.assertIn(problem or "", out)

    def test_info_compares_the_engines(self):
        """The other engine here answers with its first input."""
        self.pack([node("Identity", ["image"], "y")])
        self.corvane("info", "--check", "net.bin", says=["OpenCV 4", " against ONNX Runtime 1.99.0", '0 "y"', "all of 1 within"])
        self.pack([node("Relu", ["image"], "y")])
        out, _ = self.corvane("info", "--check", "net.bin", status=1)
        self.assertIn("1 of 1 beyond rtol 0.001", out)
        self.corvane("info", "--check", "--atol", "2", "net.bin", says="all of 1 within rtol 0.001, atol 2")
        pair = [value_info(name, SHAPE) for name in ("image", "other")]
        self.write("net.onnx", model([node("Identity", ["image"], "y"), node("Max", ["image", "other"], "z")], [], pair,
                                     [value_info(name, SHAPE) for name in "yz"]))
        self.corvane("pack", "net.onnx", "-o", "net.bin")
        out, _ = self.corvane("info", "--check", "net.bin", status=1)
        self.assertIn("1 of 2 beyond", out)
        self.pack([node("LSTM", ["image"], "y")])
        self.corvane("info", "--check", "net.bin", status=2, says=["'y' (LSTM)", "corvane: --check: OpenCV: net.bin: rknn_init"])
        self.corvane("info", "--check", "missing.bin", status=2, says="missing.bin: ")


if __name__ == "__main__":
    main()
