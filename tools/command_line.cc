#include "tools/command_line.h"

#include "corvane/util.h"

namespace corvane_tool {

namespace {

constexpr const char* kPictures =
    "PNG or JPEG files; folders of them; @FILE or FILE.txt: one name a line; -: the same from "
    "standard input";
constexpr const char* kLandmarks =
    "x,y of left eye, right eye, nose tip, left and right mouth corner; left is left in the "
    "picture";
constexpr const char* kTemplate =
    "The aligned face: 112 (if not given), 96x112, 96-scaled, 128, 128-scaled, 224, 256, "
    "256-scaled";

void AddSettings(CLI::App* verb, SettingsOptions* options) {
  verb->footer(
      "The settings file (INI):\n"
      "  [model]      file\n"
      "  [input]      kind (float32, float16, int16, uint8), pixel_type (RGB, BGR, GRAY, BGR2RGB,\n"
      "               RGB2BGR), means, scales, resize, template, exif\n"
      "  [landmarks]  one line for each picture: its file name = ten numbers\n"
      "  [output]     folder");
  verb->add_option("-c,--config", options->config, "The settings file; options below override it");
  verb->add_option("--model", options->model, "The model file");
  verb->add_option("--kind", options->kind,
                   "The form of the model's input: float32, float16, int16, uint8");
  verb->add_option("--pixel-type", options->pixel_type,
                   "How the picture is handed over: RGB, BGR, GRAY, BGR2RGB, RGB2BGR");
  verb->add_option("--means", options->means,
                   "Taken off each byte of a pixel, e.g. 127.5 or 123.675,116.28,103.53");
  verb->add_option("--scales", options->scales, "Multiplied after the means, e.g. 1/127.5");
  verb->add_option("--resize", options->resize,
                   "How pictures without landmarks come to the model's size: false, bilinear (or "
                   "true), antialias, nearest, letterbox");
  verb->add_option("--template", options->face, kTemplate);
  verb->add_option("--exif", options->exif, "true: turns JPEGs that their EXIF data calls turned");
  verb->add_option("--landmarks", options->landmarks, kLandmarks);
}

void AddTolerance(CLI::App* verb, ToleranceOptions* options) {
  verb->add_option("--rtol", options->rtol,
                   "Allowed difference as a share of the reference; 0.001 if not given");
  verb->add_option("--atol", options->atol, "Added to that; 0.00001 if not given");
}

void AddPack(CLI::App* app, PackOptions* options) {
  CLI::App* verb = app->add_subcommand("pack", "Make a model file of an ONNX model");
  verb->add_option("model", options->model, "The ONNX file")->required();
  verb->add_option("-o,--output", options->output, "The model file to write")->required();
  verb->add_option("--type", options->type,
                   "Native input type: float32 (if not given), float16, int8, uint8, int16");
  verb->add_option("--fl", options->fl, "Fractional bits of a fixed-point input (int16, int8)");
  verb->add_option("--mean", options->mean,
                   "The model's own means, one per channel: taken off what the runtime converts");
  verb->add_option("--scale", options->scale,
                   "The model's own scales, one per channel: multiplied after the means");
  verb->add_flag("--raw", options->raw, "No ONNX: a model compiled for the board, packed unread");
}

void AddInfo(CLI::App* app, InfoOptions* options) {
  CLI::App* verb = app->add_subcommand(
      "info", "Show what the runtime says about a model file, or sum up a recording");
  verb->footer(
      "Exit status with --check: 0 where the engines agree, 1 where not, 2 where not both run it.");
  verb->add_option("model", options->model, "The model file or recording")->required();
  verb->add_flag("--check", options->check,
                 "Run it on both engines of the simulated runtime, and say where they differ");
  AddTolerance(verb, &options->tolerance);
  for (const char* name : {"--rtol", "--atol"}) verb->get_option(name)->needs("--check");
}

void AddRun(CLI::App* app, RunOptions* options) {
  CLI::App* verb = app->add_subcommand("run", "Run a model on pictures");
  verb->add_option("images", options->images, kPictures)->required();
  AddSettings(verb, &options->settings);
  verb->add_option("--output", options->settings.output,
                   "Folder for aligned faces (PNG), results.json, results.jsonl, tensors (.npy)");
  verb->add_option("--json", options->json,
                   "Write the results to this file, and one line a picture beside it (.jsonl)");
  verb->add_option("--npy", options->npy, "Write each output tensor to a .npy file in this folder");
  verb->add_option("--expect", options->expect,
                   "Compare the outputs with a folder, a results file or a .npy file");
  AddTolerance(verb, &options->tolerance);
  verb->add_flag("--show", options->show,
                 "Write what the model sees, with the landmarks (NAME.input.png in the folder)");
  verb->add_flag("-q,--quiet", options->quiet, "No table for each picture, only the summary");
}

void AddCompare(CLI::App* app, CompareOptions* options) {
  CLI::App* verb = app->add_subcommand("compare", "Compare outputs with those of another run");
  verb->footer(
      "Exit status: 0 where every element t of the test has |t - r| <= atol + rtol * |r| for the\n"
      "reference's r, 1 where not, 2 where the comparison cannot be made.");
  verb->add_option("reference", options->reference,
                   "A .npy file, a folder of them, a results.json or results.jsonl")
      ->required();
  verb->add_option("test", options->test, "The same, of what is compared")->required();
  AddTolerance(verb, &options->tolerance);
  verb->add_option("--json", options->json,
                   "Write the comparison to this file; without a name, to standard output instead "
                   "of the table")
      ->expected(0, 1)
      ->default_str("-");
}

void AddExplain(CLI::App* app, ExplainOptions* options) {
  CLI::App* verb =
      app->add_subcommand("explain", "Find which setting is wrong, by a reference output");
  verb->add_option("image", options->image, "The PNG or JPEG file")->required();
  verb->add_option("--expect", options->expect,
                   "The model's first output for this picture where it is right (.npy)");
  verb->add_option("--expect-input", options->expect_input,
                   "The tensor that training feeds for this picture (.npy)");
  AddSettings(verb, &options->settings);
}

void AddKinds(CLI::App* app, KindsOptions* options) {
  CLI::App* verb =
      app->add_subcommand("kinds", "Measure what each kind of input costs against float32");
  verb->add_option("images", options->images, kPictures)->required();
  AddSettings(verb, &options->settings);
}

void AddAlign(CLI::App* app, AlignOptions* options) {
  CLI::App* verb = app->add_subcommand("align", "Cut an upright face out of a picture");
  verb->add_option("image", options->image, "PNG or JPEG file")->required();
  verb->add_option("--landmarks", options->landmarks, kLandmarks)->required();
  verb->add_option("--template", options->face, kTemplate);
  verb->add_option("-o,--output", options->output, "The PNG file to write")->required();
}

void AddDoctor(CLI::App* app, DoctorOptions* options) {
  CLI::App* verb =
      app->add_subcommand("doctor", "Find what is wrong with the board, the runtime and a model");
  verb->footer(
      "Exit status: 0 where all is well, 1 where something is worth a look, 2 where something is\n"
      "wrong.");
  verb->add_option("model", options->model, "The model file; without it none is run");
  verb->add_option("--json", options->json, "Write the report to this file, too");
  verb->add_option("--limit", options->limit,
                   "Seconds that a step may take before it counts as hanging; 30 if not given");
  verb->add_option("--root", options->root,
                   "Read /proc, /sys and /dev below this folder instead of those of this machine");
}

void AddBench(CLI::App* app, BenchOptions* options) {
  CLI::App* verb = app->add_subcommand("bench", "Measure how long a model takes in the library");
  verb->footer(
      "prepare: until the input tensor is made; run: from there until the runtime has all "
      "outputs;\n"
      "fetch: until the caller has them. Percentiles are by nearest rank. Exit status with\n"
      "--compare: 1 where something has become slower beyond the noise, 2 where nothing can be\n"
      "measured.");
  verb->add_option("model", options->settings.model, "The model file")->required();
  verb->add_option("-c,--config", options->settings.config, "The settings file of corvane run");
  verb->add_option("--kind", options->settings.kind,
                   "The form of the model's input: float32 (if not given), float16, int16, uint8");
  verb->add_option("--pixel-type", options->settings.pixel_type,
                   "How the picture is handed over: RGB (if not given), BGR, GRAY, ...");
  verb->add_option("--means", options->settings.means, "As of corvane run");
  verb->add_option("--scales", options->settings.scales, "As of corvane run");
  verb->add_option("--parallel", options->parallel,
                   "Measure 1 to N backends at the same time; 2 if not given");
  verb->add_option("--seconds", options->seconds,
                   "How long to wait for steady times; 60 if not given");
  verb->add_option("--limit", options->limit,
                   "Seconds without a frame after which the runtime counts as hanging; 30 if not "
                   "given");
  verb->add_option("--json", options->json, "Write the figures to this file, too");
  verb->add_option("--compare", options->compare,
                   "Tell what has changed since this file was written by --json");
}

void AddCommand(CLI::App* verb, std::vector<std::string>* command) {
  verb->add_option("command", *command, "After --: the program and its arguments")->required();
}

void AddRecord(CLI::App* app, RecordOptions* options) {
  CLI::App* verb = app->add_subcommand(
      "record", "Run a program and record what it and the runtime say to each other");
  verb->footer("Exit status: the program's; 128 and the signal's number where one ended it.");
  AddCommand(verb, &options->command);
  verb->add_option("-o,--output", options->output, "The recording to write; not there yet")
      ->required();
  verb->add_option("--every", options->every,
                   "Keep the bytes of every Nth frame only, of the others their hashes");
  verb->add_option("--frames", options->frames, "Record no frame after the first N");
  verb->add_option("--max-bytes", options->max_bytes, "Stop before the recording grows larger");
}

void AddReplay(CLI::App* app, ReplayOptions* options) {
  CLI::App* verb = app->add_subcommand(
      "replay", "Run a program on the simulated runtime, which answers from a recording");
  verb->footer(
      "Exit status: the program's; where that is 0, 1 unless it did all that was recorded.");
  verb->add_option("recording", options->recording, "What corvane record wrote")->required();
  AddCommand(verb, &options->command);
  verb->add_flag("--times", options->times, "Let each call take as long as it took");
}

}  // namespace

CommandLine::CommandLine() {
  app.set_version_flag("--version", corvane::version());
  app.require_subcommand(1);
  AddPack(&app, &pack);
  AddInfo(&app, &info);
  AddRun(&app, &run);
  AddCompare(&app, &compare);
  AddExplain(&app, &explain);
  AddKinds(&app, &kinds);
  AddAlign(&app, &align);
  AddDoctor(&app, &doctor);
  AddBench(&app, &bench);
  AddRecord(&app, &record);
  AddReplay(&app, &replay);
  app.add_subcommand("manual", "Print the man page (roff)");
  app.add_subcommand("completion", "Print the completion for bash");
  // Last: subcommands inherit it.
  app.footer(
      "Exit status: 0; 1 with a line that names the file or the setting; 2 for a bad command "
      "line.");
}

}  // namespace corvane_tool
