// Loading and destroying a model: the files, the runtime calls and their order, every failure.
#include "corvane/backend.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <type_traits>

#include "tests/support/allocation_faults.h"
#include "tests/support/runtime_fixture.h"

namespace corvane {
namespace {

using corvane_test::FailEachAllocation;
using corvane_test::RuntimeTest;
using corvane_test::TempFile;
using testing::AnyOf;

static_assert(!std::is_copy_constructible<OutputTensor>::value, "a copy could share the buffer");
static_assert(std::is_nothrow_move_constructible<OutputTensor>::value,
              "a growing vector must move");
static_assert(std::has_virtual_destructor<Backend_<float>>::value,
              "destroyed through the interface");

class BackendTest : public RuntimeTest {
 protected:
  struct Load {
    bool loaded;
    std::string exception, out, err;
  };
  // Loads path and destroys the backend again.
  static Load TryLoad(const std::string& path) {
    Load result = {};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    try {
      result.loaded = InitBackend(path, "aux", {"more", ""}, {}, {}, RKNN_INPUT_FLOAT32) != nullptr;
    } catch (const std::runtime_error& error) {
      result.exception = error.what();
    }
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    return result;
  }
  static void ExpectFailure(const std::string& path, const std::string& cause) {
    const Load load = TryLoad(path);
    EXPECT_EQ(load.exception, "failed to initialize RKNN backend.");
    EXPECT_EQ(load.out, "loading RKNN model. [file='" + path + "']\n");
    EXPECT_EQ(load.err, cause + "failed to initialize RKNN backend. [model_path='" + path + "']\n");
  }
  static void ExpectUnreadable(const std::string& path) {
    ExpectFailure(path, "failed to read rknn model file. [file='" + path +
                            "']\nfailed to load RKNN model.\n");
  }
};

TEST_F(BackendTest, LoadsQueriesAndDestroysInOrder) {
  UseModel({Input(4, 4, 3)}, {Output({5}), Output({2, 3})});
  const TempFile file("0123456789abcMODEL");
  const Load load = TryLoad(file.path());
  EXPECT_TRUE(load.loaded);
  EXPECT_EQ(load.out, "loading RKNN model. [file='" + file.path() + "']\n");
  EXPECT_EQ(load.err, "");
  EXPECT_EQ(
      Calls(),
      "init(MODEL, flags 0) query(num) query(in 0) query(out 0) query(out 1) destroy(intact)");
}

TEST_F(BackendTest, HandsTheRuntimeWhatFollowsThePrefix) {
  UseModel({}, {});  // nothing to query then
  EXPECT_TRUE(TryLoad(TempFile("0123456789abc").path()).loaded);
  EXPECT_EQ(Calls(), "init(, flags 0) query(num) destroy(intact)");
}

TEST_F(BackendTest, AHandleOfZeroIsDestroyedLikeAnyOther) {
  UseModel({}, {});
  rknn_sim::SetNextHandle(0);
  EXPECT_TRUE(TryLoad(TempFile("0123456789abcM").path()).loaded);
  EXPECT_EQ(Calls(), "init(M, flags 0) query(num) destroy(intact)");
}

TEST_F(BackendTest, ReportsFilesThatCannotBeOpened) {
  for (const std::string path : {"/nonexistent/model%s%n.bin", ""}) {
    ExpectFailure(
        path, "failed to loading rknn model. [file='" + path + "']\nfailed to load RKNN model.\n");
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(BackendTest, ReportsFilesThatCannotBeRead) {
  ExpectUnreadable(TempFile("").path());
  ExpectUnreadable(TempFile("0123456789ab").path());  // one byte short of the prefix
  ExpectUnreadable(testing::TempDir());
  ExpectUnreadable("/proc/version");  // claims no length

  const TempFile huge("");
  ASSERT_EQ(truncate(huge.path().c_str(), (1L << 32) + 1), 0);
  ExpectUnreadable(huge.path());

  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ExpectUnreadable("/proc/self/fd/" + std::to_string(pipe_ends[0]));
  close(pipe_ends[0]);
  close(pipe_ends[1]);
  EXPECT_EQ(Calls(), "");
}

TEST_F(BackendTest, ReportsEachFailureOfTheRuntimeAndGivesBackTheContext) {
  struct {
    rknn_sim::Function function;
    uint64_t nth;
    const char* cause;
    const char* calls;
  } const rows[] = {
      {rknn_sim::Function::kInit, 1, "failed to init RKNN context. [ret=%d]\n", "init(M, flags 0)"},
      {rknn_sim::Function::kQuery, 1, "failed to query rknn. [ret=%d]\n",
       "init(M, flags 0) query(num) destroy(intact)"},
      {rknn_sim::Function::kQuery, 3, "failed to query rknn input attr. [ret=%d]\n",
       "init(M, flags 0) query(num) query(in 0) query(in 1) destroy(intact)"},
      {rknn_sim::Function::kQuery, 5, "failed to query rknn output attr. [ret=%d]\n",
       "init(M, flags 0) query(num) query(in 0) query(in 1) query(out 0) query(out 1) "
       "destroy(intact)"},
  };
  const TempFile file("0123456789abcM");
  for (const auto& row : rows) {
    for (int ret : {-6, 3}) {  // any value but 0 is a failure here
      UseModel({Input(4, 4, 3), Input(4, 4, 3)}, {Output({5}), Output({2})});
      rknn_sim::ReturnAt(row.function, row.nth, ret);
      char cause[100];
      std::snprintf(cause, sizeof(cause), row.cause, ret);
      ExpectFailure(file.path(), cause);
      EXPECT_EQ(Calls(), row.calls);
    }
  }
}

TEST_F(BackendTest, AFailedAllocationReachesTheCallerAndLeaksNothing) {
  const TempFile file("0123456789abcMODEL");
  UseModel({Input(4, 4, 3)}, {Output({5}), Output({2, 3})});
  const std::string path = file.path(), aux(100, 'x');
  const std::vector<std::string> texts = {aux, aux};
  const std::vector<float> means(3), scales(3);
  testing::internal::CaptureStdout();
  const int descriptor_before = open("/dev/null", O_RDONLY);
  const long failures =
      FailEachAllocation([&] { InitBackend(path, aux, texts, means, scales, RKNN_INPUT_FLOAT16); },
                         [&](long nth, bool threw, long leaked) {
                           EXPECT_TRUE(threw) << nth;
                           EXPECT_EQ(leaked, 0) << nth;
                           EXPECT_EQ(rknn_sim::LiveContexts(), 0u) << nth;
                         });
  EXPECT_GE(failures, 8);  // backend, five members, model, two attribute vectors less what is small
  const int descriptor_after = open("/dev/null", O_RDONLY);
  EXPECT_EQ(descriptor_after, descriptor_before + 1) << "a file was left open";
  close(descriptor_after);
  close(descriptor_before);
  testing::internal::GetCapturedStdout();
}

TEST_F(BackendTest, ReservedOnlyWritesItsLine) {
  UseModel({Input(1, 1, 3)}, {});
  const auto backend = MakeBackend(RKNN_INPUT_FLOAT32);
  const std::string calls = Calls();
  testing::internal::CaptureStderr();
  backend->Reserved();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("\\[src/rknn/rknn\\([0-9]+\\)\\] Unsupported now.\n"));
  EXPECT_EQ(Calls(), calls);
}

TEST(OutputTensorTest, MovesItsFloatsAndLeavesNothingBehind) {
  OutputTensor source;
  EXPECT_EQ(source.data, nullptr);
  EXPECT_EQ(source.count, 0u);
  source.data = new float[2];
  source.count = 2;
  source.shape[3] = 2;
  float* const floats = source.data;

  OutputTensor target;
  target.data = new float[1];
  target = std::move(source);
  EXPECT_EQ(target.data, floats);
  EXPECT_EQ(target.shape[3], 2u);
  EXPECT_EQ(source.data, nullptr);
  OutputTensor& same = target;
  target = std::move(same);
  EXPECT_EQ(target.data, floats);
  EXPECT_EQ(OutputTensor(std::move(target)).count, 2u);
}

}  // namespace
}  // namespace corvane
