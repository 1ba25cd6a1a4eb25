"""Small networks with random weights as ONNX files, written without a protobuf library."""
import random
import struct


def varint(value):
    data = b""
    while value >= 0x80:
        data, value = data + bytes([value & 0x7F | 0x80]), value >> 7
    return data + bytes([value])


def field(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    value = value.encode() if isinstance(value, str) else value
    return varint(number << 3 | 2) + varint(len(value)) + value


def value_info(name, shape):
    dims = b"".join(field(1, field(1, extent)) for extent in shape)
    return field(1, name) + field(2, field(1, field(1, 1) + field(2, dims)))


def node(operator, inputs, outputs, **attributes):
    outputs = outputs.split()
    data = b"".join(field(1, name) for name in inputs) + b"".join(field(2, name) for name in outputs)
    data += field(3, outputs[0]) + field(4, operator)
    for name, value in attributes.items():
        if isinstance(value, int):
            content = field(3, value % 2 ** 64) + field(20, 2)
        elif isinstance(value, float):
            content = varint(2 << 3 | 5) + struct.pack("<f", value) + field(20, 1)
        elif isinstance(value, str):
            content = field(4, value) + field(20, 3)
        elif isinstance(value, bytes):  # a tensor
            content = field(5, value) + field(20, 4)
        else:
            content = b"".join(field(8, number % 2 ** 64) for number in value) + field(20, 7)
        data += field(5, field(1, name) + content)
    return data


def tensor(name, shape, values):
    """Of floats, or of 64-bit integers where all values are integers."""
    is_whole = all(isinstance(value, int) for value in values)
    data = struct.pack("<%d%s" % (len(values), "q" if is_whole else "f"), *values)
    return b"".join(field(1, extent) for extent in shape) + field(2, 7 if is_whole else 1) + field(8, name) + field(9, data)


def halves(name, shape, values, is_packed=False):
    """In half precision, as bytes or as whole numbers."""
    bits = [struct.unpack("<H", struct.pack("<e", value))[0] for value in values]
    data = field(5, b"".join(varint(number) for number in bits)) if is_packed else field(9, struct.pack("<%dH" % len(bits), *bits))
    return b"".join(field(1, extent) for extent in shape) + field(2, 10) + field(8, name) + data


def model(nodes, tensors, inputs, outputs, opset=13, producer="test"):
    graph = b"".join(field(1, one) for one in nodes) + field(2, "graph") + b"".join(field(5, one) for one in tensors)
    graph += b"".join(field(11, one) for one in inputs) + b"".join(field(12, one) for one in outputs)
    return field(1, 7) + field(2, producer) + field(7, graph) + field(8, field(1, "") + field(2, opset))


class Network:
    """Convolutions with ReLU, each on the one before; then the mean of each channel, or the map itself."""

    def __init__(self, seed, shape, layers, is_map=False):
        self.random = random.Random(seed)
        self.shape = shape
        self.nodes, self.weights = [], []
        channels, last = shape[1], "image"
        height, width = shape[2:]
        for i, (kernel, stride, outputs) in enumerate(layers):
            scale = (2 / (channels * kernel * kernel)) ** 0.5
            self.add("w%d" % i, (outputs, channels, kernel, kernel), scale)
            self.add("b%d" % i, (outputs,), 0.5)
            self.nodes.append(node("Conv", [last, "w%d" % i, "b%d" % i], "conv%d" % i, kernel_shape=[kernel] * 2,
                                   strides=[stride] * 2, pads=[kernel // 2] * 4))
            self.nodes.append(node("Relu", ["conv%d" % i], "relu%d" % i))
            height, width = [(n + 2 * (kernel // 2) - kernel) // stride + 1 for n in (height, width)]
            channels, last = outputs, "relu%d" % i
        if not is_map:
            self.nodes.append(node("GlobalAveragePool", [last], "mean"))
            self.nodes.append(node("Flatten", ["mean"], "answer", axis=1))
            self.output = value_info("answer", [1, channels])
        else:
            self.output = value_info(last, [1, channels, height, width])

    def add(self, name, shape, scale):
        count = 1
        for extent in shape:
            count *= extent
        self.weights.append(tensor(name, shape, [self.random.gauss(0, scale) for _ in range(count)]))

    def bytes(self):
        return model(self.nodes, self.weights, [value_info("image", self.shape)], [self.output], opset=11)
