#!/usr/bin/python3
"""Writes a small network that describes a face: tools/models/make_descriptor.py OUTPUT.onnx

Nothing in it is learnt. It is a classical descriptor, histograms of oriented gradients, written in the
operations every inference runtime has, so it shows a real model's whole way in 2 KB:

  1 x 3 x 112 x 112   the aligned face as R, G, B planes, (x - 127.5) / 127.5
  gray                1x1 convolution
  gradients           5x5 convolution, unpadded: the derivative of a Gaussian in 8 directions
  rectification       each direction keeps its own sign of the slope
  histograms          pooling: 8 x 8 overlapping cells, each of 8 directions
  contrast            every cell is divided by the length of its 8 numbers, so light does not matter
  centring            a 1x1 convolution takes the mean off each cell, so "no direction" is zero
  length 1            1 x 512; the dot product of two descriptors is their cosine similarity

Needs Debian's python3-onnx. Writes the same bytes every time.
"""
import math
import sys

import numpy as np
from onnx import TensorProto, checker, helper, numpy_helper

SIZE = 112
DIRECTIONS = 8
CELLS = 8  # a side
CELL = (SIZE - 4) // (CELLS + 1)  # pixels from one cell to the next; each is two wide


def gradient_kernels():
    """One derivative of a Gaussian for each direction, 5x5; the weights of an edge of height 1 sum to 1."""
    sigma = 1.0
    axis = np.arange(-2, 3, dtype=np.float64)
    x, y = np.meshgrid(axis, axis)
    bell = np.exp(-(x * x + y * y) / (2 * sigma * sigma))
    kernels = []
    for k in range(DIRECTIONS):
        angle = 2 * math.pi * k / DIRECTIONS
        kernel = (math.cos(angle) * x + math.sin(angle) * y) * bell
        kernels.append(kernel / np.abs(kernel).sum() * 2)
    return np.array(kernels).reshape(DIRECTIONS, 1, 5, 5)


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_descriptor.py OUTPUT.onnx")

    weights = {
        "gray_weights": np.array([0.299, 0.587, 0.114]).reshape(1, 3, 1, 1),
        "gradient_weights": gradient_kernels(),
        "centre_weights": (np.eye(DIRECTIONS) - 1 / DIRECTIONS).reshape(DIRECTIONS, DIRECTIONS, 1, 1),
    }
    # LRN divides by (bias + alpha / size * sum of squares over `size` channels) ^ beta. With a window
    # that covers every channel, alpha = size and beta = 1/2 it divides by the vector's length.
    cell_window = 2 * DIRECTIONS - 1
    count = DIRECTIONS * CELLS ** 2
    nodes = [
        helper.make_node("Conv", ["image", "gray_weights"], ["gray"], name="gray", kernel_shape=[1, 1]),
        helper.make_node("Conv", ["gray", "gradient_weights"], ["slopes"], name="gradients", kernel_shape=[5, 5]),
        helper.make_node("Relu", ["slopes"], ["rising"], name="rectification"),
        helper.make_node("AveragePool", ["rising"], ["cells"], name="histograms",
                         kernel_shape=[2 * CELL, 2 * CELL], strides=[CELL, CELL]),
        helper.make_node("LRN", ["cells"], ["contrast"], name="contrast", size=cell_window,
                         alpha=float(cell_window), beta=0.5, bias=1e-5),
        helper.make_node("Conv", ["contrast", "centre_weights"], ["centred"], name="centring",
                         kernel_shape=[1, 1]),
        helper.make_node("Reshape", ["centred", "column_shape"], ["column"], name="column"),
        helper.make_node("LRN", ["column"], ["unit"], name="unit_length", size=2 * count - 1,
                         alpha=float(2 * count - 1), beta=0.5, bias=1e-12),
        helper.make_node("Reshape", ["unit", "row_shape"], ["descriptor"], name="row"),
    ]
    initializers = [numpy_helper.from_array(value.astype(np.float32), name) for name, value in weights.items()]
    initializers.append(numpy_helper.from_array(np.array([1, count, 1, 1], np.int64), "column_shape"))
    initializers.append(numpy_helper.from_array(np.array([1, count], np.int64), "row_shape"))
    graph = helper.make_graph(
        nodes, "oriented_gradients",
        [helper.make_tensor_value_info("image", TensorProto.FLOAT, [1, 3, SIZE, SIZE])],
        [helper.make_tensor_value_info("descriptor", TensorProto.FLOAT, [1, count])],
        initializers)
    model = helper.make_model(graph, producer_name="make_descriptor.py", ir_version=6,
                              opset_imports=[helper.make_opsetid("", 11)])
    checker.check_model(model)
    with open(sys.argv[1], "wb") as file:
        file.write(model.SerializeToString(deterministic=True))


if __name__ == "__main__":
    main()
