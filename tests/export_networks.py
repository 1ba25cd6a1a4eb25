#!/usr/bin/python3
"""Exports common networks with random weights as PyTorch does by default, with an input and its answer, in the
layout of ONNX's conformance data: export_networks.py FOLDER

Needs Debian's python3-torch, python3-torchvision and python3-onnx.
"""
import os
import sys
import warnings

import onnx.numpy_helper
import torch
import torch.nn.functional
import torchvision.models

OPSETS = (11, 13)


class Slicing(torch.nn.Module):
    """The first and a later step of detectors: every second pixel into channels, and a chunk."""

    def forward(self, x):
        quarters = torch.cat((x[..., ::2, ::2], x[..., 1::2, ::2], x[..., ::2, 1::2], x[..., 1::2, 1::2]), 1)
        value, gate = quarters.chunk(2, 1)
        return value * gate.sigmoid()


class Face(torch.nn.Module):
    """A small face network; three ways to write that its answer has length 1."""

    def __init__(self, norm):
        super().__init__()
        self.convolution = torch.nn.Conv2d(3, 8, 3, 2)
        self.activation = torch.nn.PReLU(8)
        self.last = torch.nn.Sequential(torch.nn.Linear(8, 16), torch.nn.BatchNorm1d(16))
        self.norm = norm

    def forward(self, x):
        y = self.last(self.activation(self.convolution(x)).mean((2, 3)))
        return self.norm(y)


NETWORKS = {
    **{name: getattr(torchvision.models, name) for name in (
        "resnet18", "mobilenet_v2", "mobilenet_v3_small", "shufflenet_v2_x0_5", "squeezenet1_1", "efficientnet_b0",
        "densenet121")},
    "slicing": Slicing,
    "face_normalize": lambda: Face(torch.nn.functional.normalize),
    "face_norm": lambda: Face(lambda y: y / torch.norm(y, dim=1, keepdim=True)),
    "face_sqrt_sum": lambda: Face(lambda y: y / torch.sqrt((y * y).sum(1, keepdim=True))),
}


def write(path, array):
    with open(path, "wb") as file:
        file.write(onnx.numpy_helper.from_array(array.detach().numpy()).SerializeToString())


def main():
    warnings.filterwarnings("ignore")
    torch.manual_seed(0)
    for name, make in NETWORKS.items():
        network = make().eval()
        picture = torch.randn(1, 3, 64, 64)
        for opset in OPSETS:
            folder = os.path.join(sys.argv[1], "%s_opset%d" % (name, opset))
            os.makedirs(os.path.join(folder, "test_data_set_0"), exist_ok=True)
            torch.onnx.export(network, picture, os.path.join(folder, "model.onnx"), opset_version=opset)
            write(os.path.join(folder, "test_data_set_0", "input_0.pb"), picture)
            write(os.path.join(folder, "test_data_set_0", "output_0.pb"), network(picture))


if __name__ == "__main__":
    main()
