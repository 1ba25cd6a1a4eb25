#!/usr/bin/python3
"""Makes random ONNX models of one to four operations with random inputs, in the layout of ONNX's conformance data but
without the answers: random_graphs.py FOLDER SEED COUNT

An engine that is right about the published cases may still be wrong about the next shape, attribute or neighbour.
Needs Debian's python3-onnx.
"""
import os
import random
import sys

import numpy
import onnx.helper
import onnx.numpy_helper
import onnx.shape_inference
from onnx import TensorProto


def pick(*choices):
    return random.choice(choices)


def chance(probability):
    return random.random() < probability


def whole(*numbers):
    return numpy.array(numbers, numpy.int64)


def number(value):
    return numpy.float32(value)


def normal(*shape):
    return numpy.asarray(numpy.random.randn(*shape) * pick(1, 1, 2), numpy.float32)


def positive(array):
    return numpy.asarray(numpy.abs(array) + number(.5), numpy.float32)


def sizes(rank=None):
    return [pick(1, 1, 1, 2)] + [pick(1, 2, 3, 4, 6, 8) for _ in range((rank or pick(2, 2, 3, 4, 4, 4, 4, 5)) - 1)]


def broadcast(shape):
    """Sizes that can be expanded to the others."""
    channels = [shape[1]] + [1] * (len(shape) - 2)
    some = [size if chance(.5) else 1 for size in shape]
    return pick(list(shape), shape[-1:], channels, [1], [], shape[:1] + [1] * (len(shape) - 1), some)


def axis_of(shape):
    return random.randrange(-len(shape), len(shape))


class Graph:
    def __init__(self):
        self.opset = pick(11, 13, 13, 17)
        self.nodes, self.constants, self.inputs, self.others, self.names = [], [], [], [], 0

    def name(self):
        self.names += 1
        return "v%d" % self.names

    def input(self, shape):
        self.inputs.append((self.name(), list(shape)))
        return self.inputs[-1][0]

    def constant(self, array):
        name, tensor = self.name(), onnx.numpy_helper.from_array(numpy.asarray(array))
        if chance(.5):
            tensor.name = name
            self.constants.append(tensor)
        else:
            self.nodes.append(onnx.helper.make_node("Constant", [], [name], value=tensor))
        return name

    def op(self, operator, *inputs, count=1, **attributes):
        """Arrays become constants."""
        names = [value if isinstance(value, str) else self.constant(value) for value in inputs]
        outputs = [self.name() for _ in range(count)]
        self.nodes.append(onnx.helper.make_node(operator, names, outputs, **attributes))
        return outputs[0] if count == 1 else outputs

    def value(self, shape):
        """An input, perhaps with something before."""
        x = self.input(shape)
        kind = pick("", "", "Relu", "Sigmoid", "scale", "Conv")
        if kind == "Conv" and len(shape) == 4:
            return self.op("Conv", x, normal(shape[1], shape[1], 1, 1), kernel_shape=[1, 1])
        if kind == "scale":
            return self.op("Mul", x, number(1.5))
        return self.op(kind, x) if kind in ("Relu", "Sigmoid") else x

    def random_array_or_value(self, shape, is_constant=.5):
        return normal(*shape) if chance(is_constant) else self.value(shape or [1])


def unary(g, op):
    x = g.value(sizes())
    if op in ("Log", "Sqrt", "Reciprocal", "Acosh"):
        x = g.op("Add", g.op("Abs", x), number(1.1))
    attributes = {"HardSigmoid": {"alpha": .3, "beta": .4}, "Selu": {"alpha": 1.2, "gamma": 1.1}, "Shrink": {"lambd": .4, "bias": .3}}
    if op in ("Elu", "LeakyRelu", "ThresholdedRelu", "Celu"):
        attributes[op] = {"alpha": pick(.1, .5, 1.3)}
    return g.op(op, x, **(attributes.get(op, {}) if chance(.7) else {}))


def binary(g, op):
    shape = sizes()
    x, other, kind = g.value(shape), broadcast(shape), pick("constant", "constant", "input", "branch")
    if kind == "constant":
        y = positive(normal(*other)) if op in ("Div", "Pow") else normal(*other)
    elif kind == "input":
        y = g.op("Add", g.op("Abs", g.input(other or [1])), number(.5))
    else:
        y = g.op("Add", reduced(g, x, shape), number(.5))
    if op == "Pow":
        x = g.op("Abs", x)
    result = g.op(op, *((y, x) if chance(.3) and op != "Div" else (x, y)))  # x may have zeros
    return g.op("Cast", result, to=1) if op in ("Greater", "Less") else result


def reduced(g, x, shape):
    y = g.op(pick("Sigmoid", "Exp"), x)
    if len(shape) == 4 and chance(.3):
        return g.op("GlobalAveragePool", y)
    return g.op(pick("ReduceMean", "ReduceMax", "ReduceL2"), y, axes=[random.randrange(1, len(shape))], keepdims=1) if chance(.5) else y


def pool(g, op):
    dims = pick(1, 2, 2, 2, 3)
    kernel = [pick(1, 2, 3) for _ in range(dims)]
    attributes = windows(kernel)
    if chance(.3):
        attributes["ceil_mode"] = pick(0, 1)
    if op == "AveragePool":
        attributes["count_include_pad"] = pick(0, 1)
    return g.op(op, g.value([pick(1, 2), pick(1, 3)] + [pick(5, 6, 7, 8, 9) for _ in kernel]), **attributes)


def windows(kernel):
    attributes = {"kernel_shape": kernel, "strides": [pick(1, 2, 3) if chance(.7) else 1 for _ in kernel]}
    padding = random.random()
    if padding < .5:
        attributes["pads"] = [pick(0, 0, 1) if size > 1 else 0 for size in kernel + kernel]
    elif padding < .65:
        attributes["auto_pad"] = pick("SAME_UPPER", "SAME_LOWER", "VALID")
    return attributes


def convolution(g, op):
    channels, outputs = pick(1, 2, 4), pick(2, 4)
    groups = pick(*(n for n in (1, 1, 2, 4) if channels % n == 0 and outputs % n == 0))
    kernel = [pick(1, 2, 3) for _ in range(pick(1, 2, 2, 2, 3))]
    weights = [outputs, channels // groups] if op == "Conv" else [channels, outputs // groups]
    attributes = dict(windows(kernel), group=groups)
    if chance(.3):
        attributes["dilations"] = [pick(1, 2) for _ in kernel]
    if op == "ConvTranspose" and chance(.3):
        attributes["output_padding"] = [pick(0, 1) for _ in kernel]
    bias = [normal(outputs)] if chance(.6) else []
    return g.op(op, g.value([pick(1, 1, 2), channels] + [pick(5, 6, 7) for _ in kernel]), normal(*weights, *kernel), *bias, **attributes)


def gemm(g, op):
    m, k, n, a, b = pick(1, 1, 2, 3), pick(3, 4), pick(2, 5), pick(0, 0, 1), pick(0, 1)
    inputs = [g.value([k, m] if a else [m, k]), g.random_array_or_value([n, k] if b else [k, n], .7)]
    if chance(.7):
        inputs.append(g.random_array_or_value(pick([n], [1, n], [m, n], [1], []), .8))
    factors = {"alpha": pick(1., .5, 2.), "beta": pick(1., .5, 2.)} if chance(.4) else {}
    return g.op(op, *inputs, transA=a, transB=b, **factors)


def matmul(g, op):
    lead, m, k, n = [pick(1, 2) for _ in range(pick(0, 0, 1, 2))], pick(1, 3), pick(2, 4), pick(1, 5)
    y = g.op(op, g.value(lead + [m, k]), g.random_array_or_value(pick(lead, []) + [k, n]))
    if chance(.4):
        y = g.op(pick("Mul", "Div", "Add"), y, number(8))
    return g.op("Softmax", y, axis=-1) if chance(.3) else y


def with_axis(g, op):
    shape = sizes()
    x = g.value(shape)
    return g.op(op, g.op("Tanh", x) if op == "LogSoftmax" else x, axis=axis_of(shape))


def reduction(g, op):
    shape = sizes()
    axes = sorted(random.sample(range(len(shape)), pick(1, 1, 2)))
    if chance(.3):
        axes = [axis - len(shape) for axis in axes]
    x = g.value(shape)
    if op == "ReduceLogSum":
        x = g.op("Add", g.op("Abs", x), number(.5))
    if op == "ReduceSum" and g.opset >= 13:
        return g.op(op, x, whole(*axes), keepdims=pick(0, 1))
    return g.op(op, x, axes=axes, keepdims=pick(0, 1))


def concat(g, op):
    shape = sizes()
    axis, parts = axis_of(shape), [g.value(shape)]
    for _ in range(pick(0, 1, 2)):
        other = list(shape)
        other[axis] = pick(1, 2, 3)
        parts.append(g.random_array_or_value(other, .3))
    random.shuffle(parts)
    return g.op(op, *parts, axis=axis)


def transpose(g, op):
    shape = sizes()
    return g.op(op, g.value(shape), perm=random.sample(range(len(shape)), len(shape)))


def reshape(g, op):
    shape = sizes()
    return g.op(op, g.value(shape), whole(*pick([-1], [shape[0], -1], [0, -1], [1, -1, 1], [shape[0], 1, -1], [-1, shape[-1]], shape[::-1])))


def squeeze(g, op):
    shape = [1] + sizes()
    axes = [pick(*(i for i, size in enumerate(shape) if size == 1))] if op == "Squeeze" else [random.randrange(len(shape) + 1)]
    return g.op(op, g.value(shape), whole(*axes)) if g.opset >= 13 else g.op(op, g.value(shape), axes=axes)


def cut(g, op):
    shape = sizes()
    starts, ends, axes, steps = [], [], [], []
    for axis in random.sample(range(len(shape)), pick(1, 1, 2)):
        starts.append(random.randrange(-shape[axis], shape[axis]))
        ends.append(pick(shape[axis], 2**31, 2**63 - 1, -1, random.randrange(shape[axis] + 1)))
        axes.append(axis - len(shape) if chance(.3) else axis)
        steps.append(pick(1, 1, 1, 2, 3, -1))
    return g.op(op, g.value(shape), whole(*starts), whole(*ends), whole(*axes), whole(*steps))


def split(g, op):
    shape = sizes()
    axis = axis_of(shape)
    shape[axis] = pick(4, 6, 8)
    first = random.randrange(1, shape[axis])
    parts = [first, shape[axis] - first]
    if chance(.4):
        y = g.op(op, g.value(shape), count=2, axis=axis)
    elif g.opset >= 13:
        y = g.op(op, g.value(shape), whole(*parts), count=2, axis=axis)
    else:
        y = g.op(op, g.value(shape), count=2, axis=axis, split=parts)
    if chance(.4):
        g.others.append(y.pop())
        return y[0]
    return pick(*y)


def gather(g, op):
    shape = sizes()
    axis = axis_of(shape)
    index = random.randrange(-shape[axis], shape[axis])
    return g.op(op, g.value(shape), numpy.array(pick(index, [index], [index, 0]), numpy.int64), axis=axis)


def expand(g, op):
    shape = sizes()
    return g.op(op, g.value([size if chance(.6) else 1 for size in shape]), whole(*shape))


def pad(g, op):
    shape, mode = sizes(pick(2, 3, 4, 4, 4)), pick("constant", "constant", "reflect", "edge")
    most = [0 if axis == 0 else size - 1 if mode == "reflect" else 2 for axis, size in enumerate(shape)]
    fill = [number(pick(0, 1.5))] if mode == "constant" and chance(.6) else []
    return g.op(op, g.value(shape), whole(*(min(pick(0, 0, 1, 2), limit) for limit in most + most)), *fill, mode=mode)


def blocks(g, op):
    shape = [pick(1, 2), 8, 2, 6]
    return g.op(op, g.value(shape), blocksize=2, **({"mode": pick("DCR", "CRD")} if op == "DepthToSpace" else {}))


def normalisation(g, op):
    shape = sizes(pick(3, 4, 4, 5))
    spread = [normal(shape[1]), positive(normal(shape[1]))] if op == "BatchNormalization" else []
    return g.op(op, g.value(shape), normal(shape[1]), normal(shape[1]), *spread, epsilon=pick(1e-3, 1e-5))


def written_out(g, op):
    """Divided by its own length, or its mean taken away, as exporters write it."""
    shape = sizes()
    x, axis = g.value(shape), random.randrange(1, len(shape))
    if op == "mean":
        return g.op("Sub", x, g.op("ReduceMean", x, axes=[axis], keepdims=1))
    x = g.op("Mul", x, number(pick(1, 1e-6)))
    norm = g.op("ReduceL2", x, axes=[axis], keepdims=1)
    if chance(.5):
        norm = g.op("Sqrt", g.op("ReduceSumSquare", x, axes=[axis], keepdims=1))
    return g.op("Div", x, g.op("Clip", norm, number(1e-12)) if chance(.4) else norm)


def lrn(g, op):
    return g.op(op, g.value(sizes(pick(3, 4, 4))), size=pick(1, 3, 5), alpha=.01, beta=.6, bias=2.)


def prelu(g, op):
    shape = sizes(pick(2, 3, 4, 4))
    return g.op(op, g.value(shape), normal(*pick([1], [shape[1]] + [1] * (len(shape) - 2), shape[-1:], shape)))


def clip(g, op):
    return g.op(op, g.value(sizes()), *pick((number(-.3), number(.6)), (number(-.3),), ("", number(.6))))


def several(g, op):
    shape = sizes()
    values = [g.value(shape)] + [g.random_array_or_value(broadcast(shape) if chance(.4) else shape, .4) for _ in range(pick(0, 1, 2))]
    random.shuffle(values)
    return g.op(op, *values)


def resize(g, op):
    shape = [pick(1, 2), pick(1, 3), pick(3, 4, 5), pick(3, 4, 6)]
    mode = pick("nearest", "nearest", "linear", "cubic")
    attributes = {"coordinate_transformation_mode": pick("half_pixel", "asymmetric", "align_corners", "pytorch_half_pixel")}
    if mode == "nearest":
        attributes["nearest_mode"] = pick("floor", "floor", "round_prefer_floor", "ceil")
    if chance(.5):
        scales = numpy.array([1, 1, pick(2, .5, 1.5, 3), pick(2, .5, 1.3)], numpy.float32)
        return g.op(op, g.value(shape), "", scales, mode=mode, **attributes)
    return g.op(op, g.value(shape), "", "", whole(*shape[:2], pick(2, 4, 7, 8), pick(3, 5, 8, 12)), mode=mode, **attributes)


def cast(g, op):
    return g.op(op, g.op(op, g.op("Mul", g.value(sizes()), number(3)), to=pick(1, 1, 6, 7, 9, 11)), to=1)


def gate(g, _):
    shape = sizes(4)
    x = g.value(shape)
    y = g.op(pick("Sigmoid", "HardSigmoid", "Tanh"), g.op("GlobalAveragePool", x))
    return g.op(pick("Add", "Mul"), g.op(pick("Mul", "Add", "Sub"), *(pick((x, y), (y, x)))), x)


KINDS = [
    (unary, "Abs Ceil Cos Elu Erf Exp Floor HardSigmoid HardSwish LeakyRelu Log Neg Reciprocal Relu Round Selu Shrink Sigmoid Sign "
            "Sin Softplus Softsign Sqrt Tanh ThresholdedRelu Celu Atan Sinh Cosh Asinh Acosh Tan Identity Dropout", 1),
    (binary, "Add Sub Mul Div Pow Greater Less", 6), (pool, "AveragePool MaxPool", 6), (convolution, "Conv ConvTranspose", 8),
    (gemm, "Gemm", 8), (matmul, "MatMul", 8), (with_axis, "Softmax LogSoftmax Flatten ArgMax ArgMin", 3),
    (reduction, "ReduceL1 ReduceL2 ReduceLogSum ReduceMax ReduceMean ReduceMin ReduceProd ReduceSum ReduceSumSquare", 3),
    (concat, "Concat", 5), (transpose, "Transpose", 5), (reshape, "Reshape", 5), (squeeze, "Squeeze Unsqueeze", 3), (cut, "Slice", 12),
    (split, "Split", 6), (gather, "Gather", 5), (expand, "Expand", 5), (pad, "Pad", 6), (blocks, "DepthToSpace SpaceToDepth", 2),
    (normalisation, "BatchNormalization InstanceNormalization", 4), (written_out, "norm mean", 8), (lrn, "LRN", 3), (prelu, "PRelu", 5),
    (clip, "Clip", 5), (several, "Max Min Sum Mean", 4), (resize, "Resize", 12), (cast, "Cast", 4), (gate, "gate", 4),
]


def after(g, y):
    kind = pick("", "", "Relu", "Sigmoid", "Mul", "Add")
    return g.op(kind, y, number(.5)) if kind in ("Mul", "Add") else g.op(kind, y) if kind else y


def model_of(g, y):
    """None for what ONNX itself finds wrong."""
    inputs = [onnx.helper.make_tensor_value_info(name, TensorProto.FLOAT, shape) for name, shape in g.inputs]
    outputs = [onnx.helper.make_empty_tensor_value_info(name) for name in [y] + g.others]
    graph = onnx.helper.make_graph(g.nodes, "graph", inputs, outputs, g.constants)
    model = onnx.helper.make_model(graph, opset_imports=[onnx.helper.make_opsetid("", g.opset)], producer_name=pick("pytorch", ""), ir_version=8)
    try:
        model = onnx.shape_inference.infer_shapes(model)
    except RuntimeError:
        return None
    if any(output.type.tensor_type.elem_type == 0 for output in model.graph.output):
        return None
    del model.graph.value_info[:]
    if chance(.5):  # sizes that the file leaves open
        for output in model.graph.output:
            for dim in output.type.tensor_type.shape.dim:
                if chance(.5):
                    dim.dim_param = "n"
    return model


def main():
    root, seed, count = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    random.seed(seed)
    numpy.random.seed(seed)
    kinds = [(make, op) for make, ops, weight in KINDS for op in ops.split() for _ in range(weight)]
    for i in range(count):
        make, op = pick(*kinds)
        g = Graph()
        y = make(g, op)
        model = model_of(g, y if op.startswith("Arg") else after(g, y))
        if model is None:
            continue
        data = os.path.join(root, "%s_%05d" % (op, i), "test_data_set_0")
        os.makedirs(data)
        onnx.save(model, os.path.join(root, "%s_%05d" % (op, i), "model.onnx"))
        for k, (_, shape) in enumerate(g.inputs):
            with open(os.path.join(data, "input_%d.pb" % k), "wb") as file:
                file.write(onnx.numpy_helper.from_array(normal(*shape)).SerializeToString())


if __name__ == "__main__":
    main()
