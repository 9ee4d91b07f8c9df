#include "platform/cpu.h"

#include <cstdlib>
#include <cstring>

namespace korvel {
namespace {

Lanes widest() {
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("fma")) return Lanes::baseline;
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl")) {
    return Lanes::avx512;
  }
  if (__builtin_cpu_supports("avx2")) return Lanes::avx2;
#endif
  return Lanes::baseline;
}

Lanes chosen() {
  const Lanes most = widest();
  const char* wish = std::getenv("KORVEL_LANES");  // NOLINT(concurrency-mt-unsafe)
  if (wish == nullptr) return most;
  if (std::strcmp(wish, "baseline") == 0) return Lanes::baseline;
  if (std::strcmp(wish, "avx2") == 0 && most != Lanes::baseline) return Lanes::avx2;
  return most;
}

}  // namespace

Lanes cpu_lanes() {
  static const Lanes lanes = chosen();
  return lanes;
}

}  // namespace korvel
