// Loading and destroying a model: the files, the runtime calls and their order, every failure.
#include "corvane/backend.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <tuple>
#include <type_traits>

#include "tests/support/allocation_faults.h"
#include "tests/support/descriptor_probe.h"
#include "tests/support/runtime_fixture.h"

namespace {

// What the C library is to do when the library reads a model, and what it has seen.
struct FileFaults {
  std::string path = "unset";  // of the file; others are left alone
  FILE* file = nullptr;
  int open_error = 0, open_failures = 0;  // the next opens fail
  int read_error = 0;                     // reads fail once, with this error,
  std::size_t bytes_before = 0;           // after so many bytes
  bool closes_on_exec = false;
  long allocations_at_open = 0, allocations_at_first_read = 0;
};
FileFaults faults;

template <typename Function>
Function* Real(const char* name, Function* /*same type*/) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define CORVANE_INTERPOSED extern "C" __attribute__((visibility("default")))

CORVANE_INTERPOSED FILE* fopen(const char* path, const char* mode) {
  const auto real = Real("fopen", &fopen);
  if (path != faults.path) return real(path, mode);
  if (faults.open_failures > 0) {
    --faults.open_failures;
    errno = faults.open_error;
    return nullptr;
  }
  faults.file = real(path, mode);
  faults.closes_on_exec = (fcntl(fileno(faults.file), F_GETFD) & FD_CLOEXEC) != 0;
  faults.allocations_at_open = corvane_test::AllocationsMade();
  faults.allocations_at_first_read = 0;
  return faults.file;
}

CORVANE_INTERPOSED size_t fread(void* bytes, size_t size, size_t count, FILE* file) {
  const auto real = Real("fread", &fread);
  if (file != faults.file) return real(bytes, size, count, file);
  if (faults.allocations_at_first_read == 0) {
    faults.allocations_at_first_read = corvane_test::AllocationsMade();
  }
  if (faults.read_error == 0 || count <= faults.bytes_before) {
    return real(bytes, size, count, file);
  }
  const size_t got = real(bytes, size, faults.bytes_before, file);
  errno = faults.read_error;
  faults.read_error = 0;
  return got;
}

namespace corvane {
namespace {

using corvane_test::FailEachAllocation;
using corvane_test::OpenDescriptors;
using corvane_test::RuntimeTest;
using corvane_test::TempFile;
using corvane_test::WriteProbe;

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
    int error;  // errno
  };
  // Loads path and destroys the backend again.
  static Load TryLoad(const std::string& path) {
    Load result = {};
    const std::vector<std::string> texts = {"more", ""};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    errno = EDOM;
    try {
      const auto backend = InitBackend(path, texts[0], texts, {}, {}, RKNN_INPUT_FLOAT32);
      result.error = errno;
      result.loaded = true;
    } catch (const std::runtime_error& error) {
      result.error = errno;
      result.exception = error.what();
    }
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    return result;
  }
  static void ExpectFailure(const std::string& path, const std::string& cause, int reason) {
    const Load load = TryLoad(path);
    EXPECT_EQ(load.error, reason);
    EXPECT_EQ(load.exception, "failed to initialize RKNN backend.");
    EXPECT_EQ(load.out, "loading RKNN model. [file='" + path + "']\n");
    EXPECT_EQ(load.err, cause + "failed to initialize RKNN backend. [model_path='" + path + "']\n");
  }
  static void ExpectUnreadable(const std::string& path) {
    ExpectFailure(
        path, "failed to read rknn model file. [file='" + path + "']\nfailed to load RKNN model.\n",
        ENODATA);
  }
};

TEST_F(BackendTest, LoadsQueriesAndDestroysInOrder) {
  UseModel({Input(4, 4, 3)}, {Output({5}), Output({2, 3})});
  const TempFile file("0123456789abcMODEL");
  const Load load = TryLoad(file.path());
  EXPECT_TRUE(load.loaded);
  EXPECT_EQ(load.error, EDOM) << "a success leaves errno as it was";
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
        path, "failed to loading rknn model. [file='" + path + "']\nfailed to load RKNN model.\n",
        ENOENT);
  }
  EXPECT_EQ(Calls(), "");
}

TEST_F(BackendTest, ReportsFilesThatCannotBeRead) {
  ExpectUnreadable(TempFile("").path());
  ExpectUnreadable(TempFile("0123456789ab").path());  // one byte short of the prefix
  ExpectUnreadable(testing::TempDir());
  ExpectUnreadable("/proc/version");  // claims no length

  const TempFile huge("");
  ASSERT_EQ(truncate(huge.path().c_str(), (int64_t{1} << 32) + 1), 0);
  ExpectUnreadable(huge.path());

  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ExpectUnreadable("/proc/self/fd/" + std::to_string(pipe_ends[0]));
  close(pipe_ends[0]);
  close(pipe_ends[1]);
  EXPECT_EQ(Calls(), "");
}

TEST_F(BackendTest, SurvivesInterruptionsAndReportsErrorsOfTheFile) {
  const TempFile file("0123456789abcMODEL");
  UseModel({}, {});
  faults.path = file.path();
  faults.open_error = faults.read_error = EINTR;
  faults.open_failures = 2;
  faults.bytes_before = 2;
  EXPECT_TRUE(TryLoad(file.path()).loaded);
  EXPECT_EQ(Calls(), "init(MODEL, flags 0) query(num) destroy(intact)");
  EXPECT_TRUE(faults.closes_on_exec) << "another thread's child would inherit the model";

  faults.read_error = EIO;  // in the middle
  ExpectUnreadable(file.path());
  faults.bytes_before = 0;  // a directory reports a length, and its first read fails
  faults.read_error = EISDIR;
  ExpectUnreadable(file.path());
  EXPECT_EQ(faults.allocations_at_first_read, faults.allocations_at_open);

  faults.open_error = ENOMEM;
  faults.open_failures = 1;
  errno = 0;
  EXPECT_THROW(TryLoad(file.path()), std::bad_alloc);
  EXPECT_EQ(errno, ENOMEM);
  testing::internal::GetCapturedStdout();
  testing::internal::GetCapturedStderr();
}

TEST_F(BackendTest, WritesItsLinesAtOnceAndSurvivesClosedPipes) {
  UseModel({}, {});
  const TempFile file("0123456789abcM");
  const WriteProbe out(1), err(2);
  std::vector<std::string> written_before_init;
  rknn_sim::HookAt(rknn_sim::Function::kInit, 1,
                   [&](const rknn_sim::Call&) { written_before_init = out.Writes(); });
  InitBackend(file.path(), "", {}, {}, {}, RKNN_INPUT_FLOAT32);
  EXPECT_THAT(written_before_init,
              testing::ElementsAre("loading RKNN model. [file='" + file.path() + "']\n"));
  EXPECT_THROW(InitBackend("", "", {}, {}, {}, RKNN_INPUT_FLOAT32), std::runtime_error);
  EXPECT_THAT(err.Writes(),
              testing::ElementsAre("failed to loading rknn model. [file='']\n",
                                   "failed to load RKNN model.\n",
                                   "failed to initialize RKNN backend. [model_path='']\n"));
  out.StopReading();
  err.StopReading();
  EXPECT_THROW(InitBackend("", "", {}, {}, {}, RKNN_INPUT_FLOAT32), std::runtime_error);
  EXPECT_EQ(errno, ENOENT);
  std::clearerr(stdout);
  std::clearerr(stderr);
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
      ExpectFailure(file.path(), cause, EIO);
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
  const int descriptors_before = OpenDescriptors();
  const long failures =
      FailEachAllocation([&] { InitBackend(path, aux, texts, means, scales, RKNN_INPUT_FLOAT16); },
                         [&](long nth, bool threw, long leaked) {
                           EXPECT_EQ(errno, ENOMEM) << nth;
                           EXPECT_TRUE(threw) << nth;
                           EXPECT_EQ(leaked, 0) << nth;
                           EXPECT_EQ(rknn_sim::LiveContexts(), 0u) << nth;
                         });
  EXPECT_GE(failures, 8);  // backend, five members, model, two attribute vectors less what is small
  EXPECT_EQ(OpenDescriptors(), descriptors_before);
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

TEST(OutputTensorTest, AMoveTakesEveryFieldAndLeavesAnEmptyRecord) {
  const auto fields = [](const OutputTensor& record) {
    return std::make_tuple(record.data, std::vector<uint32_t>(record.shape, record.shape + 4),
                           record.elem_size, record.plane_size, record.count);
  };
  const auto empty = fields(OutputTensor());
  EXPECT_EQ(empty, std::make_tuple(nullptr, std::vector<uint32_t>(4), 0u, 0, 0u));
  OutputTensor source, target;
  source.data = new float[2];
  for (uint32_t i = 0; i < 4; ++i) source.shape[i] = i + 1;
  source.elem_size = 4;
  source.plane_size = 12;
  source.count = 2;
  const auto full = fields(source);
  target.data = new float[1];  // released by the assignment
  target = std::move(source);
  EXPECT_EQ(fields(target), full);
  EXPECT_EQ(fields(source), empty);
  OutputTensor& same = target;
  target = std::move(same);
  EXPECT_EQ(fields(target), full);
  OutputTensor constructed(std::move(target));
  EXPECT_EQ(fields(constructed), full);
  EXPECT_EQ(fields(target), empty);
}

}  // namespace
}  // namespace corvane
