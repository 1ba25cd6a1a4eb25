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


def node(operator, inputs, output, **attributes):
    data = b"".join(field(1, name) for name in inputs) + field(2, output) + field(3, output) + field(4, operator)
    for name, numbers in attributes.items():
        kind = 2 if isinstance(numbers, int) else 7
        content = field(3, numbers) if kind == 2 else b"".join(field(8, number) for number in numbers)
        data += field(5, field(1, name) + content + field(20, kind))
    return data


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
        numbers = [self.random.gauss(0, scale) for _ in range(count)]
        dims = b"".join(field(1, extent) for extent in shape)
        self.weights.append(dims + field(2, 1) + field(8, name) + field(9, struct.pack("<%df" % count, *numbers)))

    def bytes(self):
        graph = b"".join(field(1, one) for one in self.nodes) + field(2, "random")
        graph += b"".join(field(5, one) for one in self.weights)
        graph += field(11, value_info("image", self.shape)) + field(12, self.output)
        return field(1, 7) + field(2, "test") + field(7, graph) + field(8, field(1, "") + field(2, 11))
