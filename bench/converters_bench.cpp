// Block conversion speed of the UTF-8 and ASCII converters over the unicode_lipsum corpus, with
// ICU, iconv and memcpy of the same bytes for comparison, and the speed of validation against
// the decoder it stands for. Throughput is input bytes per second.
//
//   converters_bench --benchmark_filter=Utf8ToUtf16
//   converters_bench --benchmark_filter='Validate|StandardUtf8'
#include <benchmark/benchmark.h>

#include <iconv.h>
#include <kiv/converters.h>
#include <kiv/encodings.h>
#include "bench_corpus.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#ifdef KIV_BENCH_HAVE_ICU
#include <unicode/ustring.h>
#include <unicode/utypes.h>
#endif

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Converts all of `in` in one block call; the output buffer has room for everything.
void KivBlock(benchmark::State& state, kiv::BlockConverter converter, const std::string& in,
              std::size_t out_capacity) {
  std::vector<char> out(out_capacity);
  unsigned written = 0;
  for (auto _ : state) {
    unsigned out_size = static_cast<unsigned>(out.size()), out_pos = 0, in_pos = 0;
    unsigned in_size = static_cast<unsigned>(in.size());
    int r = converter->Convert(out.data(), out_size, out_pos, in.data(), in_size, in_pos, true);
    if (r != kiv::DataConverterItf::ResultOK || in_size != in.size()) {
      state.SkipWithError("conversion stopped early");
      break;
    }
    written = out_size;
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
  state.counters["out_bytes"] = written;
}

void KivValidate(benchmark::State& state, kiv::TextEncoding encoding, const std::string& in) {
  for (auto _ : state) {
    kiv::TextValidation v = kiv::TextEncodingExp::Validate(encoding, in.data(), in.size());
    if (!v.valid) {
      state.SkipWithError("text not valid");
      break;
    }
    benchmark::DoNotOptimize(v);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
}

void Iconv(benchmark::State& state, const char* to, const char* from, const std::string& in,
           std::size_t out_capacity) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    state.SkipWithError("iconv_open failed");
    return;
  }
  std::vector<char> out(out_capacity);
  for (auto _ : state) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* src = const_cast<char*>(in.data());
    std::size_t src_left = in.size();
    char* dst = out.data();
    std::size_t dst_left = out.size();
    if (iconv(cd, &src, &src_left, &dst, &dst_left) == static_cast<std::size_t>(-1)) {
      state.SkipWithError("iconv failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
}

void Memcpy(benchmark::State& state, const std::string& in) {
  std::vector<char> out(in.size());
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
}

#ifdef KIV_BENCH_HAVE_ICU
void IcuFromUtf8(benchmark::State& state, const std::string& in) {
  std::vector<UChar> out(in.size() + 16);
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &length, in.data(),
                  static_cast<int32_t>(in.size()), &error);
    if (U_FAILURE(error)) {
      state.SkipWithError("u_strFromUTF8 failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
}

void IcuToUtf8(benchmark::State& state, const std::string& in) {
  std::vector<char> out(in.size() * 2 + 16);
  const auto* src = reinterpret_cast<const UChar*>(in.data());
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &length, src,
                static_cast<int32_t>(in.size() / 2), &error);
    if (U_FAILURE(error)) {
      state.SkipWithError("u_strToUTF8 failed");
      break;
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(in.size()));
}
#endif

}  // namespace

int main(int argc, char** argv) {
  const std::string corpus = kiv::bench::CorpusDir();
  std::filesystem::path dir = std::filesystem::path(corpus) / "unicode_lipsum";
  if (corpus.empty() || !std::filesystem::is_directory(dir)) {
    std::fprintf(stderr,
                 "converters_bench skipped: the unicode_lipsum corpus was not found (set "
                 "KIV_CORPUS_DIR to the corpus folder)\n");
    return 0;
  }
  kiv::TextEncoding utf8 = kiv::TextEncodingExp::MakeUTF8();
  kiv::TextEncoding ascii = kiv::TextEncodingExp::MakeAscii();
  kiv::TextEncoding standard = kiv::TextEncodingExp::MakeStandardUTF8();
  // The texts live as long as the registered benchmarks.
  static std::vector<std::pair<std::string, std::string>> texts;
  for (const char* script : {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean",
                             "Latin", "Russian"}) {
    std::string base = (dir / script).string() + "-Lipsum";
    texts.emplace_back(std::string(script) + ".utf8", ReadFile(base + ".utf8.txt"));
    texts.emplace_back(std::string(script) + ".utf16", ReadFile(base + ".utf16.txt"));
  }
  for (const auto& [name, text] : texts) {
    const std::string& in = text;
    if (name.ends_with(".utf8")) {
      benchmark::RegisterBenchmark(("Utf8ToUtf16/kiv/" + name).c_str(), KivBlock,
                                   utf8->GetToWideConverter(), in, 2 * in.size() + 16);
#ifdef KIV_BENCH_HAVE_ICU
      benchmark::RegisterBenchmark(("Utf8ToUtf16/icu/" + name).c_str(), IcuFromUtf8, in);
#endif
      benchmark::RegisterBenchmark(("Utf8ToUtf16/iconv/" + name).c_str(), Iconv, "UTF-16LE",
                                   "UTF-8", in, 2 * in.size() + 16);
      benchmark::RegisterBenchmark(("Utf8ToUtf16/memcpy/" + name).c_str(), Memcpy, in);
      benchmark::RegisterBenchmark(("StandardUtf8ToUtf16/kiv/" + name).c_str(), KivBlock,
                                   standard->GetToWideConverter(), in, 2 * in.size() + 16);
      benchmark::RegisterBenchmark(("Validate/utf-8/" + name).c_str(), KivValidate, utf8, in);
      benchmark::RegisterBenchmark(("Validate/utf-8-standard/" + name).c_str(), KivValidate,
                                   standard, in);
      benchmark::RegisterBenchmark(("AsciiToUtf16/kiv/" + name).c_str(), KivBlock,
                                   ascii->GetToWideConverter(), in, 2 * in.size() + 16);
      benchmark::RegisterBenchmark(("AsciiToUtf16/iconv-latin1/" + name).c_str(), Iconv, "UTF-16LE",
                                   "ISO-8859-1", in, 2 * in.size() + 16);
    } else {
      benchmark::RegisterBenchmark(("Utf16ToUtf8/kiv/" + name).c_str(), KivBlock,
                                   utf8->GetFromWideConverter(), in, 2 * in.size() + 16);
#ifdef KIV_BENCH_HAVE_ICU
      benchmark::RegisterBenchmark(("Utf16ToUtf8/icu/" + name).c_str(), IcuToUtf8, in);
#endif
      benchmark::RegisterBenchmark(("Utf16ToUtf8/iconv/" + name).c_str(), Iconv, "UTF-8",
                                   "UTF-16LE", in, 2 * in.size() + 16);
      benchmark::RegisterBenchmark(("Utf16ToUtf8/memcpy/" + name).c_str(), Memcpy, in);
      benchmark::RegisterBenchmark(("Utf16ToStandardUtf8/kiv/" + name).c_str(), KivBlock,
                                   standard->GetFromWideConverter(), in, 2 * in.size() + 16);
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
