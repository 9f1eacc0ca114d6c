// Text: building one font's texture pages with FreeType (DejaVu Sans, 16
// points), loading them back from the .qfont cache, and a 1024x768 frame
// of flat text, 100 labels of 100 characters, against the same frame empty.
// On a machine without a GPU the frames are Mesa's llvmpipe.

#include "BenchGL.h"
#include "render/CameraView.h"
#include "render/gl/FrameBuffer.h"
#include "render/gl/OpenGLSupport.h"
#include "render/objects/SceneText.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"
#include "render/text/QuickFont.h"

#include <benchmark/benchmark.h>

#include <GL/glew.h>

#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = 768;

TezBenchGL& Context() { return TezBenchContext(kWidth, kHeight); }

std::string CacheBase()
{
    return (std::filesystem::temp_directory_path() / ("tez-text-bench-" + std::to_string(getpid()))).string();
}

void BM_FontPagesBuild(benchmark::State& state)
{
    TezRef<QuickFont::QFontBuilderConfiguration> config = QuickFont::QFontBuilderConfiguration::Create();
    for (auto _ : state)
        benchmark::DoNotOptimize(QuickFont::Builder::Build("DejaVu Sans", 16, *config));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(config->charSet.size()));
}
BENCHMARK(BM_FontPagesBuild)->Unit(benchmark::kMillisecond);

void BM_FontPagesLoadFromCache(benchmark::State& state)
{
    std::string const base = CacheBase();
    QuickFont::Builder::Build("DejaVu Sans", 16, *QuickFont::QFontBuilderConfiguration::Create())->Save(base);
    for (auto _ : state)
        benchmark::DoNotOptimize(QuickFont::QFontData::Load(base));
    std::filesystem::remove(base + ".qfont");
    std::filesystem::remove(base + ".png");
}
BENCHMARK(BM_FontPagesLoadFromCache)->Unit(benchmark::kMillisecond);

// `labels` labels of 100 characters each, in `lines` lines; none: an empty
// frame.
void DrawLabels(benchmark::State& state, int labels, int lines = 1)
{
    TezBenchGL& gl = Context();
    if (!gl.ok) {
        state.SkipWithError(gl.reason.c_str());
        return;
    }
    TezBenchFrame frame(kWidth, kHeight, 10.0f, 20.0f);
    std::string line;
    for (int i = 0; i < 100; ++i)
        line += static_cast<char>('!' + (i * 7) % 90);
    std::string const one = line;
    for (int i = 1; i < lines; ++i)
        line += "\n" + one;
    for (int i = 0; i < labels; ++i) {
        TezRef<TezSceneText> label =
            TezSceneText::Create(line.c_str(), {-4.0f + (i % 2) * 4.0f, -2.9f + (i / 2) * 0.12f, 0.0f});
        label->SetColor({0.9f, 0.9f, 0.9f, 1.0f});
        frame.scene->AddChild(frame.scene->GetRoot(), TezRef<TezSceneObject>(label));
    }
    frame.Draw(); // font pages, textures and programs are not part of a frame
    for (auto _ : state)
        frame.Draw();
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(labels) * lines * 100);
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_DrawEmptyFrame(benchmark::State& state) { DrawLabels(state, 0); }
BENCHMARK(BM_DrawEmptyFrame)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_DrawFlatText10k(benchmark::State& state) { DrawLabels(state, 100); }
BENCHMARK(BM_DrawFlatText10k)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

} // namespace
