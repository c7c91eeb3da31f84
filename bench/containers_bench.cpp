// The list and the vector against std::list and std::vector of Object handles: appending and
// removing at the front, filling, and index access. Each library element lives in a counted cell
// of its own (the vector's slots point to cells too), which is what these numbers show.
#include <kiv/containers.h>
#include <kiv/object.h>

#include <benchmark/benchmark.h>

#include <iterator>
#include <list>
#include <thread>
#include <vector>

namespace {

class Element : public kiv::RefCount {};

const kiv::Object& TheElement() {
  static const kiv::Object element(new Element());
  return element;
}

// A steady queue: one append at the back and one removal at the front, on a container that holds
// range(0) elements.
void BM_KivListAddLastRemoveFirst(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeList();
  for (int i = 0; i < state.range(0); ++i) c->AddLast(TheElement());
  for (auto _ : state) {
    c->AddLast(TheElement());
    benchmark::DoNotOptimize(c->RemoveFirst());
  }
}
BENCHMARK(BM_KivListAddLastRemoveFirst)->Arg(0)->Arg(1000);

void BM_StdListAddLastRemoveFirst(benchmark::State& state) {
  std::list<kiv::Object> c(state.range(0), TheElement());
  for (auto _ : state) {
    c.push_back(TheElement());
    kiv::Object o = std::move(c.front());
    c.pop_front();
    benchmark::DoNotOptimize(o);
  }
}
BENCHMARK(BM_StdListAddLastRemoveFirst)->Arg(0)->Arg(1000);

// The vector's RemoveFirst moves every slot down, as erase at the front of std::vector does.
void BM_KivVectorAddLastRemoveFirst(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeVector();
  for (int i = 0; i < state.range(0); ++i) c->AddLast(TheElement());
  for (auto _ : state) {
    c->AddLast(TheElement());
    benchmark::DoNotOptimize(c->RemoveFirst());
  }
}
BENCHMARK(BM_KivVectorAddLastRemoveFirst)->Arg(0)->Arg(1000);

void BM_StdVectorAddLastRemoveFirst(benchmark::State& state) {
  std::vector<kiv::Object> c(state.range(0), TheElement());
  for (auto _ : state) {
    c.push_back(TheElement());
    kiv::Object o = std::move(c.front());
    c.erase(c.begin());
    benchmark::DoNotOptimize(o);
  }
}
BENCHMARK(BM_StdVectorAddLastRemoveFirst)->Arg(0)->Arg(1000);

// Filling from empty to range(0) elements (capacity kept between rounds by both).
void BM_KivVectorFill(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeVector();
  for (auto _ : state) {
    for (int i = 0; i < state.range(0); ++i) c->AddLast(TheElement());
    c->RemoveAll();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KivVectorFill)->Arg(1000);

void BM_StdVectorFill(benchmark::State& state) {
  std::vector<kiv::Object> c;
  for (auto _ : state) {
    for (int i = 0; i < state.range(0); ++i) c.push_back(TheElement());
    c.clear();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StdVectorFill)->Arg(1000);

void BM_KivListFill(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeList();
  for (auto _ : state) {
    for (int i = 0; i < state.range(0); ++i) c->AddLast(TheElement());
    c->RemoveAll();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KivListFill)->Arg(1000);

void BM_StdListFill(benchmark::State& state) {
  std::list<kiv::Object> c;
  for (auto _ : state) {
    for (int i = 0; i < state.range(0); ++i) c.push_back(TheElement());
    c.clear();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StdListFill)->Arg(1000);

// Reading every index of a container of range(0) elements through a copied handle.
void BM_KivVectorIndex(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeVector();
  const std::int32_t n = static_cast<std::int32_t>(state.range(0));
  for (std::int32_t i = 0; i < n; ++i) c->AddLast(TheElement());
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i) benchmark::DoNotOptimize(c->GetElement(i));
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_KivVectorIndex)->Arg(1000);

void BM_StdVectorIndex(benchmark::State& state) {
  std::vector<kiv::Object> c(state.range(0), TheElement());
  for (auto _ : state) {
    for (std::size_t i = 0; i < c.size(); ++i) {
      kiv::Object o = c[i];
      benchmark::DoNotOptimize(o);
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StdVectorIndex)->Arg(1000);

// Index access on a list walks from the first cell, on both sides.
void BM_KivListIndex(benchmark::State& state) {
  kiv::Container c = kiv::ContainerExp::MakeList();
  const std::int32_t n = static_cast<std::int32_t>(state.range(0));
  for (std::int32_t i = 0; i < n; ++i) c->AddLast(TheElement());
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i) benchmark::DoNotOptimize(c->GetElement(i));
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_KivListIndex)->Arg(100);

void BM_StdListIndex(benchmark::State& state) {
  std::list<kiv::Object> c(state.range(0), TheElement());
  for (auto _ : state) {
    for (long i = 0; i < state.range(0); ++i) {
      kiv::Object o = *std::next(c.begin(), i);
      benchmark::DoNotOptimize(o);
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StdListIndex)->Arg(100);

}  // namespace

int main(int argc, char** argv) {
  // libstdc++ skips atomic operations while a process has only one thread; a real host always has
  // several, so make this process multi-threaded before measuring.
  std::thread([] {}).join();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
