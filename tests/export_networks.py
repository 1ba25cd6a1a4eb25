#!/usr/bin/python3
"""Exports common networks with random weights as PyTorch does by default, with an input and its answer, in the
layout of ONNX's conformance data: export_networks.py FOLDER

Needs Debian's python3-torch, python3-torchvision and python3-onnx.
"""
import os
import sys
import warnings

import onnx
import onnx.numpy_helper
import torch
import torch.nn.functional
import torchvision.models

OPSETS = (11, 13, 17)


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


def block(inputs, outputs, stride=1):
    return torch.nn.Sequential(torch.nn.Conv2d(inputs, outputs, 3, stride, 1), torch.nn.BatchNorm2d(outputs), torch.nn.ReLU())


class UNet(torch.nn.Module):
    """Down and up again, by the nearest pixel, linearly or by a transposed convolution."""

    def __init__(self, up):
        super().__init__()
        self.first, self.down, self.up = block(3, 8), block(8, 16, 2), up
        self.last = torch.nn.Conv2d(24, 2, 1)

    def forward(self, x):
        x = self.first(x)
        return self.last(torch.cat((x, self.up(self.down(x))), 1))


class Detector(torch.nn.Module):
    """Boxes, scores and landmarks at two strides, each flattened; a face detector's heads."""

    def __init__(self):
        super().__init__()
        self.strides = torch.nn.ModuleList((block(3, 8, 2), block(8, 16, 2)))
        self.heads = torch.nn.ModuleList(torch.nn.ModuleList(torch.nn.Conv2d(c, 2 * n, 1) for n in (4, 2, 10)) for c in (8, 16))

    def forward(self, x):
        outputs = []
        for stride, heads in zip(self.strides, self.heads):
            x = stride(x)
            boxes, scores, points = (head(x).permute(0, 2, 3, 1).reshape(1, -1, n) for head, n in zip(heads, (4, 2, 10)))
            outputs += [boxes, scores.softmax(-1), points]
        return tuple(torch.cat(outputs[i::3], 1) for i in range(3))


class Recurrent(torch.nn.Module):
    """Rows of the picture as a sequence."""

    def __init__(self, kind):
        super().__init__()
        self.kind, self.last = kind(3 * 64, 16, batch_first=True), torch.nn.Linear(16, 5)

    def forward(self, x):
        return self.last(self.kind(x.permute(0, 2, 1, 3).flatten(2))[0][:, -1])


class Normalised(torch.nn.Module):
    def __init__(self):
        super().__init__()
        self.norm, self.mix = torch.nn.LayerNorm(64), torch.nn.Linear(64, 64)

    def forward(self, x):
        return torch.nn.functional.gelu(self.mix(self.norm(x)))


class Quantised(torch.nn.Module):
    """As quantisation-aware training leaves it: QuantizeLinear and DequantizeLinear around a convolution."""

    def __init__(self):
        super().__init__()
        self.convolution = torch.nn.Conv2d(3, 4, 3, 2)

    def forward(self, x):
        x = torch.fake_quantize_per_tensor_affine(x, 1 / 32, 128, 0, 255)
        weight = torch.fake_quantize_per_tensor_affine(self.convolution.weight, 1 / 256, 0, -128, 127)
        y = torch.nn.functional.conv2d(x, weight, self.convolution.bias, 2)
        return torch.fake_quantize_per_tensor_affine(y, 1 / 64, 128, 0, 255)


NETWORKS = {
    **{name: getattr(torchvision.models, name) for name in (
        "resnet18", "mobilenet_v2", "mobilenet_v3_small", "shufflenet_v2_x0_5", "squeezenet1_1", "efficientnet_b0",
        "densenet121")},
    "unet_nearest": lambda: UNet(torch.nn.Upsample(scale_factor=2)),
    "unet_linear": lambda: UNet(torch.nn.Upsample(scale_factor=2, mode="bilinear")),
    "unet_transposed": lambda: UNet(torch.nn.ConvTranspose2d(16, 16, 2, 2)),
    "detector": Detector,
    "slicing": Slicing,
    "face_normalize": lambda: Face(torch.nn.functional.normalize),
    "face_norm": lambda: Face(lambda y: y / torch.norm(y, dim=1, keepdim=True)),
    "face_sqrt_sum": lambda: Face(lambda y: y / torch.sqrt((y * y).sum(1, keepdim=True))),
    "lstm": lambda: Recurrent(torch.nn.LSTM),
    "gru": lambda: Recurrent(torch.nn.GRU),
    "vit": lambda: torchvision.models.VisionTransformer(64, 16, 2, 4, 64, 128),
    "layer_norm": Normalised,
    "float16": torchvision.models.squeezenet1_1,  # see halve
    "qdq": Quantised,
}


def halve(path):
    """Stores the weights in half precision, cast where they are read."""
    model = onnx.load(path)
    names = {tensor.name: tensor.name + ".half" for tensor in model.graph.initializer if tensor.name.endswith("weight")}
    for tensor in model.graph.initializer:
        if tensor.name in names:
            half = onnx.numpy_helper.to_array(tensor).astype("float16")
            tensor.CopyFrom(onnx.numpy_helper.from_array(half, names[tensor.name]))
    for i, (name, half) in enumerate(names.items()):
        model.graph.node.insert(i, onnx.helper.make_node("Cast", [half], [name], to=onnx.TensorProto.FLOAT))
    onnx.save(model, path)


def write(path, array):
    with open(path, "wb") as file:
        file.write(onnx.numpy_helper.from_array(array.detach().numpy()).SerializeToString())


def export(root, name, make):
    network = make().eval()
    if name == "float16":
        for tensor in network.parameters():
            tensor.data = tensor.data.half().float()
    picture = torch.randn(1, 3, 64, 64)
    outputs = network(picture)
    for opset in OPSETS[1:] if name == "qdq" else OPSETS:
        folder = os.path.join(root, "%s_opset%d" % (name, opset))
        data = os.path.join(folder, "test_data_set_0")
        os.makedirs(data)
        path = os.path.join(folder, "model.onnx")
        torch.onnx.export(network, picture, path, opset_version=opset)
        if name == "float16":
            halve(path)
        write(os.path.join(data, "input_0.pb"), picture)
        for i, output in enumerate([outputs] if isinstance(outputs, torch.Tensor) else outputs):
            write(os.path.join(data, "output_%d.pb" % i), output)


def main():
    warnings.filterwarnings("ignore")
    torch.manual_seed(0)
    for name, make in NETWORKS.items():
        export(sys.argv[1], name, make)


if __name__ == "__main__":
    main()
