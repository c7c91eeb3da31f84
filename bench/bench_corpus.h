// Where the benchmarks find the shared text corpora: the folder named by the environment variable
// KIV_CORPUS_DIR, else the one the build was configured with (CMake's KIV_CORPUS_DIR, by default
// ../shared/corpus beside the source tree).
#ifndef KIV_BENCH_BENCH_CORPUS_H_
#define KIV_BENCH_BENCH_CORPUS_H_

#include <cstdlib>
#include <filesystem>
#include <string>

namespace kiv::bench {

// The corpus folder, or "" when it is absent.
inline std::string CorpusDir() {
  const char* configured = std::getenv("KIV_CORPUS_DIR");
  std::filesystem::path dir(configured != nullptr && *configured != '\0' ? configured
                                                                         : KIV_CORPUS_DIR);
  return std::filesystem::is_directory(dir) ? dir.string() : std::string();
}

}  // namespace kiv::bench

#endif  // KIV_BENCH_BENCH_CORPUS_H_
