// A plug-in for align_test, compiled as strictly as users compile, and with -Ofast. It includes
// every public header, so the warnings apply to all of them.
#include "corvane/align.h"
#include "corvane/backend.h"
#include "corvane/export.h"
#include "corvane/image.h"
#include "corvane/ini_file.h"
#include "corvane/ini_save.h"
#include "corvane/util.h"
#include "corvane/version.h"

extern "C" CORVANE_EXPORT bool FitInPlugin(const float* source, const float* destination, int count,
                                           float* matrix, double* rms_error);

bool FitInPlugin(const float* source, const float* destination, int count, float* matrix,
                 double* rms_error) {
  const float* const to = destination != nullptr ? destination : corvane::FaceTemplate112();
  return corvane::SimilarityToSource(source, to, count, matrix, rms_error);
}
