// Costs of the object model and the event bus on hot paths.
#include "core/Events.h"
#include "core/Object.h"

#include <benchmark/benchmark.h>

namespace {

class Sink : public TezEventHandler
{
public:
    static TezRef<Sink> Create() { return TezRef<Sink>(new Sink()); }
    void Handle(TezRef<TezEvent>) override { ++count; }
    int64_t count = 0;
};

void BM_RefCopy(benchmark::State& state)
{
    TezRef<TezEventManager> ref = TezEventManager::Create();
    for (auto _ : state) {
        TezRef<TezEventManager> copy = ref;
        benchmark::DoNotOptimize(copy.Get());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RefCopy);

// One report to a bus holding `range(0)` subscriptions of the same type.
void BM_EventReport(benchmark::State& state)
{
    TezRef<TezEventManager> bus = TezEventManager::Create();
    auto sink = Sink::Create();
    for (int64_t i = 0; i < state.range(0); ++i)
        bus->Subscribe(TezEventDocumentChanged::Create(), sink);
    for (auto _ : state)
        bus->Report(TezEventDocumentChanged::Create());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EventReport)->Arg(0)->Arg(1)->Arg(16);

void BM_CreateObjectFromName(benchmark::State& state)
{
    TezString name("Selection Changed Event");
    for (auto _ : state)
        benchmark::DoNotOptimize(TezCreateObjectFromName(name).Get());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CreateObjectFromName);

// Building a long line with Resize up front then Append, as script editing does.
void BM_StringAppend(benchmark::State& state)
{
    TezString piece("param, ");
    for (auto _ : state) {
        TezString line;
        line.Resize(static_cast<int>(state.range(0)) * piece.Length());
        for (int64_t i = 0; i < state.range(0); ++i)
            line.Append(piece);
        benchmark::DoNotOptimize(static_cast<char const*>(line));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StringAppend)->Arg(64)->Arg(4096);

} // namespace
