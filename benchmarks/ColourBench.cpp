// CRGBColor compared with QColor, over the pixels of an image.

#include "values/CRGBColor.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#if __has_include(<QColor>)
#include <QColor>
#define TEV_BENCH_QT
#endif

namespace
{
constexpr std::size_t kPixels = 10000000;

const std::vector<CRGBColor>& Image()
{
    static const std::vector<CRGBColor> image = [] {
        std::mt19937 random(1);
        std::vector<CRGBColor> pixels(kPixels);
        for (CRGBColor& pixel : pixels)
            pixel = CRGBColor(static_cast<unsigned long>(random()));
        return pixels;
    }();
    return image;
}

void DarkenOurs(std::vector<CRGBColor>& pixels)
{
    for (CRGBColor& pixel : pixels)
        pixel.Darken(0.1F);
}

void HueOurs(std::vector<CRGBColor>& pixels)
{
    for (CRGBColor& pixel : pixels)
        pixel.SetHue(pixel.GetHue() + 0.1F);
}

#ifdef TEV_BENCH_QT
CRGBColor FromQt(const QColor& color)
{
    return CRGBColor(color.red(), color.green(), color.blue(), color.alpha());
}

void DarkenQt(std::vector<CRGBColor>& pixels)
{
    for (CRGBColor& pixel : pixels)
    {
        float hue, saturation, value;
        QColor(pixel[0], pixel[1], pixel[2], pixel[3]).getHsvF(&hue, &saturation, &value);
        pixel = FromQt(QColor::fromHsvF(hue, saturation, value > 0.1F ? value - 0.1F : 0.0F).toRgb());
    }
}

void HueQt(std::vector<CRGBColor>& pixels)
{
    for (CRGBColor& pixel : pixels)
    {
        float hue, saturation, value;
        QColor(pixel[0], pixel[1], pixel[2], pixel[3]).getHsvF(&hue, &saturation, &value);
        hue = hue < 0 ? 0.1F : hue < 0.9F ? hue + 0.1F : hue - 0.9F;
        pixel = FromQt(QColor::fromHsvF(hue, saturation, value).toRgb());
    }
}
#endif

void Change(benchmark::State& state, void (*change)(std::vector<CRGBColor>&))
{
    for (auto _ : state)
    {
        state.PauseTiming();
        std::vector<CRGBColor> pixels = Image();
        state.ResumeTiming();
        change(pixels);
        benchmark::DoNotOptimize(pixels.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPixels));
}

void Register(const std::string& name, void (*change)(std::vector<CRGBColor>&))
{
    benchmark::RegisterBenchmark(("Colour/" + name).c_str(), Change, change)->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
    Register("darken/ours", DarkenOurs);
    Register("turn_hue/ours", HueOurs);
#ifdef TEV_BENCH_QT
    Register("darken/QColor", DarkenQt);
    Register("turn_hue/QColor", HueQt);
#endif
    return true;
}();
} // namespace
