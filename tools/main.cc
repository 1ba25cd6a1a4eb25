// corvane: the command-line tool of the library.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "corvane/util.h"
#include "tools/commands.h"
#include "tools/failure.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBadCommandLine = 2;

void AddPack(CLI::App* app, corvane_tool::PackOptions* options) {
  CLI::App* pack = app->add_subcommand("pack", "Make a model file of an ONNX model");
  pack->add_option("model", options->model, "The ONNX file")->required();
  pack->add_option("-o,--output", options->output, "The model file to write")->required();
  pack->add_option("--type", options->type,
                   "Native input type: float32 (if not given), float16, int8, uint8, int16");
  pack->add_option("--fl", options->fl, "Fractional bits of a fixed-point input (int16, int8)");
  pack->add_option("--mean", options->mean,
                   "The model's own means, one per channel: taken off what the runtime converts");
  pack->add_option("--scale", options->scale,
                   "The model's own scales, one per channel: multiplied after the means");
  pack->add_flag("--raw", options->raw, "No ONNX: a model compiled for the board, packed unread");
}

void AddInfo(CLI::App* app, corvane_tool::InfoOptions* options) {
  CLI::App* info = app->add_subcommand("info", "Show what the runtime says about a model file");
  info->add_option("model", options->model, "The model file")->required();
}

void AddRun(CLI::App* app, corvane_tool::RunOptions* options) {
  CLI::App* run = app->add_subcommand("run", "Run a model on images");
  run->footer(
      "The settings file (INI):\n"
      "  [model]      file\n"
      "  [input]      kind (float32, float16, int16, uint8), pixel_type (RGB, BGR, GRAY, BGR2RGB,\n"
      "               RGB2BGR), means, scales, resize (true, false)\n"
      "  [landmarks]  one line for each picture: its file name = ten numbers\n"
      "  [output]     folder\n"
      "Preparation is the time from the call of Forward until the runtime gets the input, run the\n"
      "time from there until the outputs are back as floats.");
  run->add_option("images", options->images, "PNG or JPEG files")->required();
  run->add_option("-c,--config", options->config, "The settings file; options below override it");
  run->add_option("--model", options->model, "The model file");
  run->add_option("--kind", options->kind,
                  "The form of the model's input: float32, float16, int16, uint8");
  run->add_option("--pixel-type", options->pixel_type,
                  "How the picture is handed over: RGB, BGR, GRAY, BGR2RGB, RGB2BGR");
  run->add_option("--means", options->means,
                  "Taken off each byte of a pixel, e.g. 127.5,127.5,127.5");
  run->add_option("--scales", options->scales, "Multiplied after the means");
  run->add_option("--resize", options->resize,
                  "true: pictures without landmarks are scaled to the model's size");
  run->add_option("--landmarks", options->landmarks,
                  "x,y of left eye, right eye, nose tip, left and right mouth corner");
  run->add_option("--output", options->output,
                  "Folder for aligned faces (PNG), results.json and tensors (.npy)");
  run->add_option("--json", options->json, "Write the results to this file");
  run->add_option("--npy", options->npy, "Write each output tensor to a .npy file in this folder");
}

void AddAlign(CLI::App* app, corvane_tool::AlignOptions* options) {
  CLI::App* align = app->add_subcommand("align", "Cut an upright 112 x 112 face out of a picture");
  align->add_option("image", options->image, "PNG or JPEG file")->required();
  align
      ->add_option("--landmarks", options->landmarks,
                   "x,y of left eye, right eye, nose tip, left and right mouth corner; left is "
                   "left in the picture")
      ->required();
  align->add_option("-o,--output", options->output, "The PNG file to write")->required();
}

int Dispatch(int argc, char** argv) {
  CLI::App app("Models for the RKNN runtime: pack them, look at them, run them.", "corvane");
  app.set_version_flag("--version", corvane::version());
  app.require_subcommand(1);
  corvane_tool::PackOptions pack;
  corvane_tool::InfoOptions info;
  corvane_tool::RunOptions run;
  corvane_tool::AlignOptions align;
  AddPack(&app, &pack);
  AddInfo(&app, &info);
  AddRun(&app, &run);
  AddAlign(&app, &align);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RequiredError& error) {
    // What was not understood is more often the cause than what is then missing.
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty()) return app.exit(error) == 0 ? 0 : kBadCommandLine;
    std::fprintf(stderr, "corvane: '%s' is not understood here; see corvane --help\n",
                 unknown.front().c_str());
    return kBadCommandLine;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kBadCommandLine;
  }
  if (app.got_subcommand("pack")) return Pack(pack);
  if (app.got_subcommand("info")) return Info(info);
  if (app.got_subcommand("run")) return Run(run);
  return Align(align);
}

}  // namespace

int main(int argc, char** argv) {
  int status = kFailed;
  try {
    status = Dispatch(argc, argv);
  } catch (const corvane_tool::Failure& failure) {
    std::fprintf(stderr, "corvane: %s\n", failure.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "corvane: %s\n", error.what());
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fprintf(stderr, "corvane: standard output cannot be written\n");
    status = kFailed;
  }
  return status;
}
