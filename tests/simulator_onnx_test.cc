// ONNX models from the file to the library's outputs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "control.h"
#include "corvane/backend.h"
#include "simulator/engines/trial.h"
#include "tests/support/onnx_writer.h"
#include "tests/support/temp_file.h"

namespace {

using namespace onnx_writer;  // NOLINT: the whole file writes models
using testing::ElementsAre;
using testing::HasSubstr;

// ctest asks for OpenCV, which not every build has; `scripts/test engines` for the other one.
const bool kIsOpenCv = [] {
  const char* const engine = std::getenv("CORVANE_SIM_ENGINE");
  return engine == nullptr || std::string(engine) != "onnxruntime";
}();
const bool kRunsOnnx = CORVANE_TEST_HAS_OPENCV || !kIsOpenCv;

int Init(const std::string& model, rknn_context* context) {
  return rknn_init(context, const_cast<char*>(model.data()), model.size(), 0);
}

struct Loaded {
  int ret;
  std::string err;
};
// Loads the model and leaves it to the caller, or destroys it again.
Loaded Load(const std::string& model, rknn_context* kept = nullptr) {
  rknn_context context = 0;
  testing::internal::CaptureStderr();
  const int ret = Init(model, &context);
  const std::string err = testing::internal::GetCapturedStderr();
  if (kept != nullptr) *kept = context;
  if (ret == 0 && kept == nullptr) {
    EXPECT_EQ(rknn_destroy(context), 0);
  }
  return {ret, err};
}

rknn_tensor_attr Attribute(rknn_context context, rknn_query_cmd command, uint32_t index) {
  rknn_tensor_attr attr = {};
  attr.index = index;
  EXPECT_EQ(rknn_query(context, command, &attr, sizeof(attr)), 0);
  return attr;
}
// The four numbers of a run of EchoModel.
std::vector<float> Echo(rknn_context context, std::string buffer, rknn_tensor_type type,
                        bool pass_through, rknn_tensor_format format) {
  rknn_input input = {};
  input.buf = &buffer[0];
  input.size = buffer.size();
  input.pass_through = pass_through;
  input.type = type;
  input.fmt = format;
  EXPECT_EQ(rknn_inputs_set(context, 1, &input) | rknn_run(context, nullptr), 0);
  float numbers[4] = {};
  rknn_output output = {};
  output.want_float = output.is_prealloc = 1;
  output.buf = numbers;
  output.size = sizeof(numbers);
  EXPECT_EQ(rknn_outputs_get(context, 1, &output, nullptr), 0);
  EXPECT_EQ(rknn_outputs_release(context, 1, &output), 0);
  return {numbers, numbers + 4};
}
std::vector<uint32_t> Dims(const rknn_tensor_attr& attr) {
  return {attr.dims, attr.dims + attr.n_dims};
}

constexpr int kWidth = 13, kHeight = 9, kPixels = kWidth * kHeight, kFilters = 4;

std::vector<float> Weights() {
  std::vector<float> weights(kFilters * 3 * 9);
  for (size_t i = 0; i < weights.size(); ++i) weights[i] = int(i * 37 % 19 - 9) / 32.0f;
  return weights;
}

// A 3x3 convolution, rectified; and the mean of each of its planes. The weights are also among the
// inputs, as older files have them, and the batch is open.
std::string ConvolutionGraph() {
  return Constant(Tensor("weights", {kFilters, 3, 3, 3}, Weights())) +
         Node("Conv", {"image", "weights"}, "sums",
              Ints("kernel_shape", {3, 3}) + Ints("pads", {1, 1, 1, 1})) +
         Node("Relu", {"sums"}, "features") + Node("GlobalAveragePool", {"features"}, "means") +
         Input(Value("image", {kOpen, 3, kHeight, kWidth})) +
         Input(Value("weights", {kFilters, 3, 3, 3})) +
         Output(Value("features", {kOpen, kFilters, kHeight, kWidth})) +
         Output(Value("means", {1, kFilters, 1, 1}));
}

// Slopes, an edge and some grain.
std::vector<uint8_t> Picture() {
  std::mt19937 random(5);
  std::vector<uint8_t> picture(kPixels * 3);
  for (int i = 0; i < kPixels * 3; ++i) {
    const int x = i / 3 % kWidth, y = i / 3 / kWidth, c = i % 3;
    picture[i] = uint8_t(10 * x + 6 * y * c + (x > 6 ? 70 : 0) + random() % 16);
  }
  return picture;
}

constexpr double kMeans[3] = {104, 117, 123}, kScale = 0.0128;

// The same network, written as the definition of a convolution.
std::vector<double> ExpectedFeatures(const std::vector<uint8_t>& picture) {
  const std::vector<float> weights = Weights();
  std::vector<double> features(kFilters * kPixels);
  for (int at = 0; at < kFilters * kPixels; ++at) {
    const int x = at % kWidth, y = at / kWidth % kHeight, filter = at / kPixels;
    double sum = 0;
    for (int tap = 0; tap < 27; ++tap) {
      const int c = tap / 9, px = x + tap % 3 - 1, py = y + tap / 3 % 3 - 1;
      if (px < 0 || px >= kWidth || py < 0 || py >= kHeight) continue;
      const double value = (picture[(py * kWidth + px) * 3 + c] - kMeans[c]) * kScale;
      sum += weights[filter * 27 + tap] * value;
    }
    features[at] = std::max(0.0, sum);
  }
  return features;
}

bool FlushesToZero() {
  volatile float least = FLT_MIN;
  return least / 2 == 0;
}

// The first test: ONNX Runtime's first session switches flush-to-zero off, in which the library
// computes.
TEST(SimulatorOnnx, LeavesTheFloatingPointMode) {
  if (!kRunsOnnx) GTEST_SKIP() << "built without OpenCV";
  rknn_sim::Session session;
  const std::string model = EchoModel({});
  const auto work = [&](bool flushes) {
    if (!flushes) std::fesetenv(FE_DFL_ENV);
    ASSERT_EQ(FlushesToZero(), flushes);
    rknn_context context = 0;
    ASSERT_EQ(Init(model, &context), 0);
    EXPECT_EQ(FlushesToZero(), flushes) << "rknn_init";
    Echo(context, std::string(16, '\0'), RKNN_TENSOR_FLOAT32, false, RKNN_TENSOR_NCHW);
    EXPECT_EQ(FlushesToZero(), flushes) << "from rknn_inputs_set to rknn_outputs_release";
    EXPECT_EQ(rknn_destroy(context), 0);
    EXPECT_EQ(FlushesToZero(), flushes) << "rknn_destroy";
  };
  for (const bool flushes : {true, false}) std::thread(work, flushes).join();
}

TEST(SimulatorOnnx, GivesOnePictureTheSameOutputsThroughEveryKind) {
  if (!kRunsOnnx) GTEST_SKIP() << "built without OpenCV";
  const Properties own = {{"corvane.input.mean", "104, 117,123"},
                          {"corvane.input.scale", "0.0128"}};
  const struct {
    corvane::RKNNInputType kind;
    Properties properties;
    bool has_model_constants;  // its mean and scale, instead of the library's
    double step;               // of the kind's values, which lie between -2 and 2
  } rows[] = {
      {corvane::RKNN_INPUT_FLOAT32, {}, false, 1e-6},
      {corvane::RKNN_INPUT_FLOAT16, {{"corvane.input.type", "float16"}}, false, 0x1p-10},
      {corvane::RKNN_INPUT_INT16,
       {{"corvane.input.type", "int16"}, {"corvane.input.fl", "12"}},
       false,
       0x1p-12},
      {corvane::RKNN_INPUT_INT16,
       {{"corvane.input.type", "int16"}, {"corvane.input.fl", "3"}},
       false,
       0x1p-3},
      {corvane::RKNN_INPUT_UINT8, own, true, 1e-6},
      {corvane::RKNN_INPUT_UINT8,
       {own[0], own[1], {"corvane.input.type", "int16"}, {"corvane.input.fl", "10"}},
       true,
       0x1p-10},
  };
  constexpr double kWeightSum = 27 * 9 / 32.0;  // no filter's weights add up to more
  const std::vector<uint8_t> picture = Picture();
  const std::vector<double> expected = ExpectedFeatures(picture);

  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "kind " << row.kind << ", step " << row.step);
    rknn_sim::Session session;
    const corvane_test::TempFile file("0123456789abc" + Model(ConvolutionGraph(), row.properties));
    std::vector<float> means, scales;
    if (!row.has_model_constants) {
      means.assign(kMeans, kMeans + 3);
      scales.assign(3, kScale);
    }
    const auto backend = corvane::InitBackend(file.path(), "", {}, means, scales, row.kind);
    std::vector<corvane::OutputTensor> outputs;
    for (int frame = 0; frame < 2; ++frame) {
      backend->Forward(picture.data(), corvane::PIXEL_RGB, kWidth, kHeight, &outputs);
    }
    ASSERT_EQ(outputs.size(), 2u);
    EXPECT_THAT(outputs[0].shape, ElementsAre(1, kFilters, kHeight, kWidth));
    ASSERT_EQ(size_t(outputs[0].count), expected.size());
    double largest = 0;
    for (size_t i = 0; i < expected.size(); ++i) {
      largest = std::max(largest, std::abs(outputs[0].data[i] - expected[i]));
    }
    EXPECT_LE(largest, kWeightSum * row.step);
    if (row.step > 1e-4) {
      EXPECT_GT(largest, row.step / 1000) << "nothing was rounded";
    }
    EXPECT_EQ(rknn_sim::MisuseCount(), 0u);
  }
}

TEST(SimulatorOnnx, TakesAttributesFromTheModel) {
  if (!kRunsOnnx) GTEST_SKIP() << "built without OpenCV";
  rknn_sim::Session session;
  rknn_context context = 0;
  const std::string model =
      Model(ConvolutionGraph(), {{"corvane.input.type", "uint8"},  // the last of a name holds
                                 {"author", "nobody"},
                                 {"corvane.input.fl", "-3"},
                                 {"corvane.input.type", "int16"}});
  ASSERT_EQ(Load(model, &context).err, "");
  rknn_input_output_num counts;
  EXPECT_EQ(rknn_query(context, RKNN_QUERY_IN_OUT_NUM, &counts, sizeof(counts)), 0);
  EXPECT_EQ(counts.n_input, 1u);
  EXPECT_EQ(counts.n_output, 2u);
  const rknn_tensor_attr input = Attribute(context, RKNN_QUERY_INPUT_ATTR, 0);
  EXPECT_STREQ(input.name, "image");
  EXPECT_THAT(Dims(input), ElementsAre(kWidth, kHeight, 3, 1));
  EXPECT_THAT((std::vector<int>{int(input.n_elems), int(input.size), input.fmt, input.type,
                                input.qnt_type, input.fl}),
              ElementsAre(3 * kPixels, 6 * kPixels, RKNN_TENSOR_NCHW, RKNN_TENSOR_INT16,
                          RKNN_TENSOR_QNT_DFP, -3));
  const rknn_tensor_attr features = Attribute(context, RKNN_QUERY_OUTPUT_ATTR, 0);
  EXPECT_STREQ(features.name, "features");
  EXPECT_THAT(Dims(features), ElementsAre(kWidth, kHeight, kFilters, 1));
  EXPECT_EQ(features.size, 4u * kFilters * kPixels);
  EXPECT_THAT(Dims(Attribute(context, RKNN_QUERY_OUTPUT_ATTR, 1)), ElementsAre(1, 1, kFilters, 1));
  EXPECT_EQ(rknn_destroy(context), 0);
}

TEST(SimulatorOnnx, ConvertsWhatIsNotPassedThrough) {
  if (!kRunsOnnx) GTEST_SKIP() << "built without OpenCV";
  rknn_sim::Session session;
  const Properties type_int16 = {{"corvane.input.type", "int16"}, {"corvane.input.fl", "4"}};
  const Properties type_half = {{"corvane.input.type", "float16"}};
  const auto bytes_of = [](auto... numbers) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char*>(&numbers), sizeof(numbers)), ...);
    return bytes;
  };
  const auto i8 = [](int number) { return static_cast<int8_t>(number); };
  const auto i16 = [](int number) { return static_cast<int16_t>(number); };
  const struct {
    Properties properties;
    std::string buffer;
    rknn_tensor_type type;
    bool pass_through;
    rknn_tensor_format format;
    std::vector<float> numbers;
  } rows[] = {
      // Interleaved bytes become planes, then the model's own mean and scale by channel.
      {{{"corvane.input.mean", "1,+2"}, {"corvane.input.scale", "0x1p-1"}},
       bytes_of(i8(1), i8(-2), i8(3), i8(-4)),
       RKNN_TENSOR_INT8,
       false,
       RKNN_TENSOR_NHWC,
       {0, 1, -2, -3}},
      {{{"corvane.input.mean", "1"}, {"corvane.input.scale", "1,2"}},
       bytes_of(1.5f, 2.0f, 3.0f, -4.0f),
       RKNN_TENSOR_FLOAT32,
       false,
       RKNN_TENSOR_NCHW,
       {0.5f, 1, 4, -10}},
      // What is passed through has been normalised by the caller.
      {{{"corvane.input.type", "uint8"}, {"corvane.input.mean", "100"}},
       "\1\2\3\xc8",
       RKNN_TENSOR_UINT8,
       true,
       RKNN_TENSOR_NHWC,
       {1, 2, 3, 200}},
      {{{"corvane.input.type", "int8"}, {"corvane.input.fl", "2"}},
       bytes_of(i8(4), i8(-8), i8(1), i8(127)),
       RKNN_TENSOR_INT8,
       true,
       RKNN_TENSOR_NCHW,
       {1, -2, 0.25f, 31.75f}},
      {type_int16,
       bytes_of(i16(16), i16(-24), i16(1), i16(32767)),
       RKNN_TENSOR_INT16,
       true,
       RKNN_TENSOR_NCHW,
       {1, -1.5f, 0.0625f, 2047.9375f}},
      {type_half,
       bytes_of(i16(0x3c00), i16(0x4100), i16(0x0400), i16(-1024)),
       RKNN_TENSOR_FLOAT16,
       true,
       RKNN_TENSOR_NCHW,
       {1, 2.5f, 0x1p-14f, -INFINITY}},
      // The native type's precision is the model's, however the numbers come.
      {type_int16,
       bytes_of(1.04f, 0.03f, -1.04f, 5000.0f),
       RKNN_TENSOR_FLOAT32,
       false,
       RKNN_TENSOR_NCHW,
       {1.0625f, 0, -1.0625f, 2047.9375f}},
      {type_half,
       bytes_of(1.0002f, 2049.0f, 0.1f, -3.0f),
       RKNN_TENSOR_FLOAT32,
       false,
       RKNN_TENSOR_NCHW,
       {1, 2048, 0.0999755859375f, -3}},
  };
  for (const auto& row : rows) {
    const std::string model = EchoModel(row.properties);
    rknn_context context = 0;
    ASSERT_EQ(Load(model, &context).err, "");
    EXPECT_EQ(Echo(context, row.buffer, row.type, row.pass_through, row.format), row.numbers);
    EXPECT_EQ(rknn_destroy(context), 0);
  }
}

TEST(SimulatorOnnx, LoadsAndRunsOnSeveralThreads) {
  if (!kRunsOnnx) GTEST_SKIP() << "built without OpenCV";
  rknn_sim::Session session;
  const std::string model = EchoModel({});
  const auto work = [&](float number) {
    for (int round = 0; round < 4; ++round) {
      rknn_context context = 0;
      ASSERT_EQ(Init(model, &context), 0);
      const std::vector<float> numbers = {number, 1, 2, number};
      const std::string buffer(reinterpret_cast<const char*>(numbers.data()), 4 * sizeof(float));
      EXPECT_EQ(Echo(context, buffer, RKNN_TENSOR_FLOAT32, false, RKNN_TENSOR_NCHW), numbers);
      EXPECT_EQ(rknn_destroy(context), 0);
    }
  };
  std::thread other(work, 3.5f);
  work(-7);
  other.join();
}

const std::string kEchoNode = Node("Identity", {"in"}, "out");
const std::string kEchoEnds = Input(Value("in", {1, 2, 1, 2})) + Output(Value("out", {1, 2, 1, 2}));

TEST(SimulatorOnnx, RefusesInOneLine) {
  rknn_sim::Session session;
  const auto echo = [](const char* key, const char* value) {
    return EchoModel({{std::string("corvane.input.") + key, value}});
  };
  const auto input = [](const std::string& value) { return Model(kEchoNode + Input(value)); };
  const auto constant = [](const std::string& tensor) {
    return Model(kEchoNode + kEchoEnds + Constant(tensor));
  };
  std::string deep = kEchoNode;
  for (int i = 0; i < 20; ++i) deep = Bytes(1, Bytes(5, Bytes(6, deep)));
  const std::string whole = EchoModel({});
  const struct {
    std::string model;
    const char* line;
  } rows[] = {
      {echo("type", "half"), "property corvane.input.type is 'half'; wanted float32, float16,"},
      {echo("fl", "128"), "property corvane.input.fl is '128'; wanted a whole number from -128"},
      {echo("fl", "4x"), "property corvane.input.fl is '4x'; wanted a whole number"},
      {echo("fl", "4"), "corvane.input.fl and FLOAT32 input; wanted it with int16 or int8 only"},
      {echo("type", "int16"), "int16 input and no property corvane.input.fl; wanted"},
      {echo("mean", "1,2,3"), "corvane.input.mean is '1,2,3'; wanted one number or 2, separated"},
      {echo("mean", "1,"), "corvane.input.mean is '1,'; wanted"},
      {echo("scale", "nan"), "corvane.input.scale is 'nan'; wanted"},
      {echo("scale", "1e39"), "corvane.input.scale is '1e39'; wanted"},
      {echo("scale", "1e-50"), "corvane.input.scale is '1e-50'; wanted"},
      {echo("scale", "--1"), "corvane.input.scale is '--1'; wanted"},
      {echo("scale", "1\n2"), "corvane.input.scale is '1?2'; wanted"},
      {echo("men", "1"), "property corvane.input.men is unknown; wanted corvane.input.type, fl,"},
      {input(Value("in", {1, 2}, kInt64)), "input 'in' has elements of ONNX type 7; wanted float,"},
      {input(Bytes(1, "in") + Bytes(2, Bytes(1, Number(1, kFloat)))),
       "input 'in' has no shape; wanted its sizes"},
      {input(Value("in", {1, 3, kOpen})), "input 'in' leaves dimension 2 open; wanted a fixed"},
      {input(Value("in", {1, 1 << 30, 1 << 30, 1 << 30})), "input 'in' has no possible shape"},
      {input(Value("in", {1, -5})), "input 'in' has no possible shape"},
      {input(Value("in", std::vector<int64_t>(17, 1))), "input 'in' has no possible shape"},
      {constant(Tensor("w", {3}, {1, 2})),
       "constant 'w' does not hold the 3 elements of its shape"},
      {constant(Tensor("w", {3}, {1, 2}) + "\x09"
                                           "3 as 64b"),  // to protobuf no dimension at all
       "constant 'w' does not hold the 3 elements of its shape"},
      {constant(Tensor("w", {1, -1}, {1})), "the constant 'w' has no possible shape"},
      {constant(Tensor("w", {1}, 99, "abcd", 4)), "constant 'w' has elements of ONNX type 99"},
      {constant(Tensor("w", {1}, {1}) + Bytes(4, "abcd")), "'w' does not hold the 1 elements"},
      {constant(Bytes(8, "w") + Bytes(13, "")), "constant 'w' is in another file; wanted"},
      {constant(Tensor("w", {1}, {1}) + Number(14, 1)), "constant 'w' is in another file; wanted"},
      // Each holds what only a walk into all that a file may nest can find.
      {whole + Bytes(25, Bytes(7, Bytes(5, Bytes(5, Bytes(13, ""))))), "is in another file"},
      {whole + Bytes(25, Bytes(11, Bytes(5, Bytes(13, "")))), "is in another file"},
      {whole + Bytes(20, ""), "the model is one for training; wanted it exported"},
      {Model(kEchoNode + kEchoEnds + Bytes(15, "")), "has a sparse constant; wanted it dense"},
      {Model(Node("Constant", {}, "w", Bytes(5, Bytes(22, ""))) + kEchoEnds), "a sparse constant"},
      {Model(Node("Constant", {}, "w", Bytes(5, Bytes(23, ""))) + kEchoEnds), "a sparse constant"},
      // Engines divide by these, and read past the end of those.
      {Model(Node("Conv", {"in"}, "out", Ints("strides", {1, 0})) + kEchoEnds),
       "attribute 'strides' is not all above 0"},
      {Model(Node("MaxPool", {"in"}, "out", Ints("kernel_shape", {-1, 1})) + kEchoEnds),
       "attribute 'kernel_shape' is not all above 0"},
      {Model(Node("Conv", {"in"}, "out",
                  Bytes(5, Bytes(1, "dilations") + Bytes(8, "\x01" + std::string(1, '\0')))) +
             kEchoEnds),
       "attribute 'dilations' is not all above 0"},
      {Model(Node("GRU", {"in", "w"}, "out") + kEchoEnds + Constant(Tensor("w", {0, 3}, {}))),
       "the constant 'w' is empty; wanted elements, in a model with RNNs"},
      {Model(deep), "graphs are nested too deep; wanted at most 8 levels"},
      {Number(1, 6), "the model has no graph; wanted one"},
      {whole + Bytes(7, ""), "the model has two graphs; wanted one"},
      {whole.substr(0, whole.size() - 9), "the model is damaged or cut off"},
      {std::string("\x08\x06\x3a\x04\x0a\x02\xff\xff", 8), "a node is damaged or cut off 2 bytes"},
  };
  for (const auto& row : rows) {
    const Loaded loaded = Load(row.model);
    EXPECT_EQ(loaded.ret, RKNN_ERR_MODEL_INVALID) << row.line;
    EXPECT_THAT(loaded.err, HasSubstr(row.line));
    EXPECT_EQ(loaded.err.find('\n'), loaded.err.size() - 1);
  }

  if (!kIsOpenCv) return;
  // Refused by OpenCV, or by a build without it.
  const struct {
    std::string model;
    const char* line;
  } opencv_rows[] = {
      {Model(Node("Nonsense", {"in"}, "out") + kEchoEnds),
       "node 'out' (Nonsense) is not among the operators"},
      {Model(Node("Identity", {"nobody"}, "out") + kEchoEnds), "OpenCV"},
      {Model(kEchoNode + kEchoEnds + Output(Value("nothing", {1}))), "OpenCV"},
  };
  for (const auto& row : opencv_rows) {
    const Loaded loaded = Load(row.model);
    EXPECT_EQ(loaded.ret, RKNN_ERR_MODEL_INVALID);
    EXPECT_THAT(loaded.err, HasSubstr(kRunsOnnx ? row.line : "built without OpenCV's dnn module"));
    EXPECT_EQ(loaded.err.find('\n'), loaded.err.size() - 1) << loaded.err;
  }
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(SimulatorOnnx, SurvivesDamagedModels) {
  rknn_sim::Session session;
  const std::string good = Model(ConvolutionGraph(), {{"corvane.input.mean", "1,2,3"}});
  std::mt19937 random(20240607);
  int refused = 0;
  for (int trial = 0; trial < 300; ++trial) {
    std::string model = good;
    // Mostly after the weights, whose values make no difference.
    const size_t at = trial % 4 == 0 ? random() % 40 : 460 + random() % (good.size() - 460);
    if (trial % 3 == 0) model[at] = static_cast<char>(random());
    if (trial % 3 == 1) model.erase(at, random() % 4 + 1);
    if (trial % 3 == 2) model.insert(at, good, random() % good.size(), random() % 8 + 1);
    const Loaded loaded = Load(model);
    EXPECT_TRUE(loaded.ret == 0 || loaded.ret == RKNN_ERR_MODEL_INVALID) << trial;
    if (loaded.ret == 0) continue;
    ++refused;
    EXPECT_EQ(loaded.err.find('\n'), loaded.err.size() - 1) << trial << loaded.err;
  }
  EXPECT_GT(refused, 50);
  EXPECT_EQ(Load(good).ret, kRunsOnnx ? 0 : RKNN_ERR_MODEL_INVALID);
  EXPECT_EQ(rknn_sim::LiveContexts(), 0u);
}

TEST(SimulatorTrial, KeepsWhateverHappensInTheChild) {
  using rknn_sim::String;
  using rknn_sim::Trial;
  using Action = bool (*)(void*, String*);
  static int touched = 0;
  const struct {
    Action action;
    Trial result;
    const char* why;
  } rows[] = {
      {[](void*, String*) { return ++touched == 1; }, Trial::kDone, ""},
      {[](void* subject, String* why) {
         *why = static_cast<const char*>(subject);
         return false;
       },
       Trial::kRefused, "subject"},
      {[](void*, String*) -> bool { throw 1; }, Trial::kEnded, "ran out of memory"},
      {[](void*, String*) { return raise(SIGSEGV) == 0; }, Trial::kEnded, "crashed (signal 11,"},
      {[](void*, String*) { return raise(SIGFPE) == 0; }, Trial::kEnded, "crashed (signal 8,"},
      {[](void*, String*) -> bool { _exit(0); }, Trial::kEnded, "ended without a word"},
  };
  for (const auto& row : rows) {
    String why;
    char subject[] = "subject";
    EXPECT_EQ(rknn_sim::TryInChild(row.action, subject, &why), row.result);
    EXPECT_THAT(why.c_str(), HasSubstr(row.why));
  }
  EXPECT_EQ(touched, 0);
}

}  // namespace
