// Flat table Get, Put and ContainsKey, hits and misses, on 100, 10,000 and 100,000 keys of 8 to
// 40 characters, against std::unordered_map<std::u16string, kiv::Object> and (when built with
// it) absl::flat_hash_map on the same keys; and a four-level path
// lookup on a tree the size of a well-filled registry, against nested standard maps.
//
// The table's bucket array stops at 2048 buckets, so large tables walk long chains by design.
#include <kiv/encodings.h>
#include <kiv/exception.h>
#include <kiv/hashtable.h>
#include <kiv/hierhashtable.h>
#include <kiv/string.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#if KIV_BENCH_HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

std::vector<std::u16string> RandomKeys(std::size_t n, unsigned seed) {
  static const char kAlphabet[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";
  std::mt19937 rng(seed);
  std::vector<std::u16string> keys;
  keys.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    std::u16string k(8 + rng() % 33, u'x');
    for (char16_t& c : k) c = static_cast<char16_t>(kAlphabet[rng() % (sizeof kAlphabet - 1)]);
    keys.push_back(
        k + static_cast<char16_t>(u'0' + i % 10));  // distinct enough; duplicates are harmless
  }
  return keys;
}

kiv::String Kiv(const std::u16string& s) {
  return kiv::String(kiv::TextEncodingExp::MakeUTF16(), const_cast<char16_t*>(s.data()),
                     static_cast<unsigned>(s.size() * 2));
}

struct Fixture {
  explicit Fixture(std::size_t n) : hits(RandomKeys(n, 1)), misses(RandomKeys(1024, 2)) {
    table = kiv::HashtableExp::Make();
    value = kiv::Object(kiv::HashtableExp::Make().Get());
    for (const auto& k : hits) {
      kiv_hits.push_back(Kiv(k));
      table->Put(kiv_hits.back(), value);
      map[k] = value;
#if KIV_BENCH_HAVE_ABSL
      amap[k] = value;
#endif
    }
    for (auto& k : misses) {
      k += u'#';  // never among the hits
      kiv_misses.push_back(Kiv(k));
    }
  }
  std::vector<std::u16string> hits;
  std::vector<std::u16string> misses;
  std::vector<kiv::String> kiv_hits;
  std::vector<kiv::String> kiv_misses;
  kiv::Hashtable table;
  kiv::Object value;
  std::unordered_map<std::u16string, kiv::Object> map;
#if KIV_BENCH_HAVE_ABSL
  absl::flat_hash_map<std::u16string, kiv::Object> amap;
#endif
};

Fixture& FixtureFor(std::size_t n) {
  static std::unordered_map<std::size_t, std::unique_ptr<Fixture>> fixtures;
  auto& f = fixtures[n];
  if (!f) f = std::make_unique<Fixture>(n);
  return *f;
}

void BM_KivGetHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.table->Get(f.kiv_hits[i]));
    if (++i == f.kiv_hits.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapGetHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    kiv::Object o = (f.*kMap).find(f.hits[i])->second;
    benchmark::DoNotOptimize(o);
    if (++i == f.hits.size()) i = 0;
  }
}

// A miss is an exception (NoSuchNamedElementException) by contract.
void BM_KivGetMiss(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    try {
      benchmark::DoNotOptimize(f.table->Get(f.kiv_misses[i]));
    } catch (const kiv::NoSuchNamedElementException&) {
    }
    if (++i == f.kiv_misses.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapGetMiss(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize((f.*kMap).find(f.misses[i]) == (f.*kMap).end());
    if (++i == f.misses.size()) i = 0;
  }
}

void BM_KivContainsHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.table->ContainsKey(f.kiv_hits[i]));
    if (++i == f.kiv_hits.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapContainsHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize((f.*kMap).find(f.hits[i]) != (f.*kMap).end());
    if (++i == f.hits.size()) i = 0;
  }
}

void BM_KivContainsMiss(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.table->ContainsKey(f.kiv_misses[i]));
    if (++i == f.kiv_misses.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapContainsMiss(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize((f.*kMap).find(f.misses[i]) != (f.*kMap).end());
    if (++i == f.misses.size()) i = 0;
  }
}

// Put of a key that is there: a replacement.
void BM_KivPutHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.table->Put(f.kiv_hits[i], f.value));
    if (++i == f.kiv_hits.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapPutHit(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    (f.*kMap)[f.hits[i]] = f.value;
    if (++i == f.hits.size()) i = 0;
  }
}

// Put of a key that is not there (an insertion, with the key copied), then its removal so that the
// table keeps its size.
void BM_KivPutMissRemove(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    f.table->Put(f.kiv_misses[i], f.value);
    benchmark::DoNotOptimize(f.table->Remove(f.kiv_misses[i]));
    if (++i == f.kiv_misses.size()) i = 0;
  }
}

template <auto kMap>
void BM_MapPutMissRemove(benchmark::State& state) {
  Fixture& f = FixtureFor(static_cast<std::size_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    (f.*kMap)[f.misses[i]] = f.value;
    benchmark::DoNotOptimize((f.*kMap).erase(f.misses[i]));
    if (++i == f.misses.size()) i = 0;
  }
}

#define KIV_SIZES Arg(100)->Arg(10000)->Arg(100000)
BENCHMARK(BM_KivGetHit)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapGetHit, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapGetHit, &Fixture::amap)->KIV_SIZES;
#endif
BENCHMARK(BM_KivGetMiss)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapGetMiss, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapGetMiss, &Fixture::amap)->KIV_SIZES;
#endif
BENCHMARK(BM_KivContainsHit)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapContainsHit, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapContainsHit, &Fixture::amap)->KIV_SIZES;
#endif
BENCHMARK(BM_KivContainsMiss)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapContainsMiss, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapContainsMiss, &Fixture::amap)->KIV_SIZES;
#endif
BENCHMARK(BM_KivPutHit)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapPutHit, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapPutHit, &Fixture::amap)->KIV_SIZES;
#endif
BENCHMARK(BM_KivPutMissRemove)->KIV_SIZES;
BENCHMARK_TEMPLATE(BM_MapPutMissRemove, &Fixture::map)->KIV_SIZES;
#if KIV_BENCH_HAVE_ABSL
BENCHMARK_TEMPLATE(BM_MapPutMissRemove, &Fixture::amap)->KIV_SIZES;
#endif

// ---- path lookup ----

// A registry-sized tree: 12 top-level nodes of 12 children of 12 children of 4 leaves (about
// 8,800 nodes), with paths of short names like "node7/node3/node11/node2".
struct StdNode {
  std::unordered_map<std::u16string, std::unique_ptr<StdNode>> children;
};

struct Tree {
  Tree() {
    kiv_root = kiv::HierHashtableExp::Make();
    std_root = std::make_unique<StdNode>();
    for (int a = 0; a < 12; ++a) {
      for (int b = 0; b < 12; ++b) {
        for (int c = 0; c < 12; ++c) {
          for (int d = 0; d < 4; ++d) {
            std::u16string path = Name(a) + u"/" + Name(b) + u"/" + Name(c) + u"/" + Name(d);
            kiv_root->MakePath(Kiv(path), 0x1FF, 0);
            StdNode* n = std_root.get();
            for (int part : {a, b, c, d}) {
              auto& slot = n->children[Name(part)];
              if (!slot) slot = std::make_unique<StdNode>();
              n = slot.get();
            }
          }
        }
      }
    }
    path = u"node7/node3/node11/node2";
    kiv_path = Kiv(path);
  }
  static std::u16string Name(int i) {
    std::u16string s = u"node";
    for (char c : std::to_string(i)) s += static_cast<char16_t>(c);
    return s;
  }
  kiv::HierHashtable kiv_root;
  std::unique_ptr<StdNode> std_root;
  std::u16string path;
  kiv::String kiv_path;
};

Tree& GetTree() {
  static Tree tree;
  return tree;
}

void BM_KivPathGet(benchmark::State& state) {
  Tree& t = GetTree();
  for (auto _ : state) benchmark::DoNotOptimize(t.kiv_root->Get(t.kiv_path));
}
BENCHMARK(BM_KivPathGet);

void BM_StdPathGet(benchmark::State& state) {
  Tree& t = GetTree();
  for (auto _ : state) {
    const StdNode* n = t.std_root.get();
    std::size_t at = 0;
    while (n != nullptr && at <= t.path.size()) {
      std::size_t slash = t.path.find(u'/', at);
      if (slash == std::u16string::npos) slash = t.path.size();
      auto it = n->children.find(t.path.substr(at, slash - at));
      n = it == n->children.end() ? nullptr : it->second.get();
      at = slash + 1;
    }
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(BM_StdPathGet);

}  // namespace

BENCHMARK_MAIN();
