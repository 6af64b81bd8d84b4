#include "values/CRGBColor.h"

#include "tests/support/ArchiveTools.h"
#include "text/Language.h"

static void PrintTo(const CRGBColor& color, std::ostream* out)
{
    *out << +color[0] << ' ' << +color[1] << ' ' << +color[2] << ' ' << +color[3];
}

namespace
{
using namespace tev::test;

TEST(CRGBColor, IsBuiltFromEveryFormOfChannels)
{
    const unsigned char bytes[] = {1, 2, 3, 4};
    const float floats[] = {0.5F, 2.0F, -1.0F, 0.25F};
    const double doubles[] = {0.5, 2.0, -1.0, 0.25};
    const CRGBColor opaque(127, 255, 0, 255);
    const CRGBColor seeThrough(127, 255, 0, 63);
    EXPECT_EQ(CRGBColor().GetRGBA(), 0xFF000000U);
    EXPECT_EQ(CRGBColor(0x7FAABBCCUL), CRGBColor(0xCC, 0xBB, 0xAA, 255));
    EXPECT_EQ(CRGBColor(300, -5, 128), CRGBColor(255, 0, 128, 255));
    EXPECT_EQ(CRGBColor(0, 0, 0, 999), CRGBColor());
    EXPECT_EQ(CRGBColor(0.5F, 2.0F, -1.0F, 255.0F), opaque);
    EXPECT_EQ(CRGBColor(0.5, 2.0, -1.0, 255.0F), opaque);
    EXPECT_EQ(CRGBColor(0.5F, 2.0F, -1.0F, 0.25F, 255.0F), seeThrough);
    EXPECT_EQ(CRGBColor(0.5, 2.0, -1.0, 0.25, 255.0F), seeThrough);
    EXPECT_EQ(CRGBColor(1.9999F, NAN, INFINITY, 1.0F), CRGBColor(1, 0, 255, 255));
    const CRGBColor byCount[] = {{0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {1, 2, 3}, {1, 2, 3, 4}};
    for (int count = 0; count <= 4; ++count)
        EXPECT_EQ(CRGBColor(bytes, count), byCount[count]);
    EXPECT_EQ(CRGBColor(bytes, -1), CRGBColor());
    EXPECT_EQ(CRGBColor(bytes, 100), byCount[4]);

    CRGBColor color(9, 9, 9, 9);
    const auto expectAfter = [&](const CRGBColor& expected) {
        EXPECT_EQ(color, expected);
        color = CRGBColor(9, 9, 9, 9);
    };
    // Integers of any types end at the limits of a channel.
    constexpr unsigned char kByte = 7;
    enum Shade : unsigned short
    {
        kBright = 999
    };
    color.SetColor(300, -5, 128);
    expectAfter(CRGBColor(255, 0, 128, 255));
    color.SetColor(300, -5, 128, 256);
    expectAfter(CRGBColor(255, 0, 128, 255));
    color.SetColor(-1, kByte, kBright);
    expectAfter(CRGBColor(0, 7, 255));
    color.SetColor(kByte, 0xFFFFFFFFU, -0x100000000LL, 300UL);
    expectAfter(CRGBColor(7, 255, 0, 255));
    EXPECT_EQ(CRGBColor(-1, kByte, kBright), CRGBColor(0, 7, 255));
    EXPECT_EQ(CRGBColor(kByte, 0xFFFFFFFFU, -0x100000000LL, 300UL), CRGBColor(7, 255, 0, 255));
    color.SetColor3(bytes);
    expectAfter(byCount[3]);
    color.SetColor4(bytes);
    expectAfter(byCount[4]);
    color.SetColor3(floats, 255);
    expectAfter(opaque);
    color.SetColor4(floats, 255);
    expectAfter(seeThrough);
    color.SetColor3(doubles, 255);
    expectAfter(opaque);
    color.SetColor4(doubles, 255);
    expectAfter(seeThrough);
    color.SetColor(0xFF030201UL);
    expectAfter(byCount[3]);
}

TEST(CRGBColor, ChannelsComeOutInEveryForm)
{
    const CRGBColor color(51, 102, 204, 255);
    EXPECT_EQ(color.GetRGB(), 0x00CC6633U);
    EXPECT_EQ(color.GetRGBA(), 0xFFCC6633U);
    EXPECT_NE(color, CRGBColor(51, 102, 204, 254));
    int ints[4];
    unsigned char bytes[4];
    float floats[4];
    double doubles[4];
    color.GetColor4(ints);
    color.GetColor4(bytes);
    color.GetColor4(floats, 51);
    color.GetColor4d(doubles, 51);
    const int expected[] = {1, 2, 4, 5};
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(ints[i], expected[i] * 51);
        EXPECT_EQ(bytes[i], expected[i] * 51);
        EXPECT_EQ(floats[i], static_cast<float>(expected[i]));
        EXPECT_EQ(doubles[i], expected[i]);
        EXPECT_EQ(color.ValPtr()[i], color[i]);
    }
    color.Normalize(floats[3], floats[2], floats[1], floats[0]);
    EXPECT_FLOAT_EQ(floats[3], 0.2F);
    EXPECT_FLOAT_EQ(floats[1], 0.8F);
    EXPECT_EQ(floats[0], 1.0F);
}

TEST(CRGBColor, HueSaturationAndLuminance)
{
    const struct
    {
        CRGBColor m_color;
        float m_hue; // sixths of the circle
        float m_saturation;
        float m_luminance;
    } cases[] = {
        {{0, 0, 0}, 0, 0, 0},       {{128, 128, 128}, 0, 0, 128 / 255.0F},
        {{255, 0, 0}, 0, 1, 1},     {{255, 255, 0}, 1, 1, 1},
        {{0, 255, 0}, 2, 1, 1},     {{0, 255, 255}, 3, 1, 1},
        {{0, 0, 255}, 4, 1, 1},     {{255, 0, 255}, 5, 1, 1},
        {{255, 0, 51}, 5.8F, 1, 1}, // each order of largest and smallest
        {{255, 51, 0}, 0.2F, 1, 1}, {{51, 255, 0}, 1.8F, 1, 1},
        {{0, 255, 51}, 2.2F, 1, 1}, {{0, 51, 255}, 3.8F, 1, 1},
        {{51, 0, 255}, 4.2F, 1, 1}, {{102, 51, 51}, 0, 0.5F, 0.4F},
    };
    for (const auto& [color, hue, saturation, luminance] : cases)
    {
        SCOPED_TRACE(color.GetRGB());
        EXPECT_NEAR(color.GetHue(), hue / 6, 1e-6);
        EXPECT_NEAR(color.GetSaturation(), saturation, 1e-6);
        EXPECT_NEAR(color.GetLuminance(), luminance, 1e-6);
    }
}

// Cutting off the digits may lose one step, more would be a wrong formula.
TEST(CRGBColor, TheModelLeadsBackToTheColour)
{
    for (int red = 0; red < 256; red += 15)
    {
        for (int green = 0; green < 256; green += 5)
        {
            for (int blue = 0; blue < 256; blue += 17)
            {
                const CRGBColor color(red, green, blue, 77);
                float hue, saturation, luminance;
                color.ConvertToHSL(hue, saturation, luminance);
                CRGBColor back(0, 0, 0, 77);
                back.InitFromHSL(hue, saturation, luminance);
                for (int i = 0; i < 4; ++i)
                    ASSERT_TRUE(back[i] == color[i] || back[i] == color[i] - 1) << color.GetRGB();
            }
        }
    }
    CRGBColor grey(128, 128, 128);
    grey.InitFromHSL(0, 0, 128 / 255.0F);
    EXPECT_EQ(grey, CRGBColor(128, 128, 128));
}

TEST(CRGBColor, CoordinatesBeyondTheModelAreTakenIn)
{
    const CRGBColor color(255, 128, 0, 7);
    const auto withHue = [&](float hue) {
        CRGBColor result = color;
        result.SetHue(hue);
        return result;
    };
    EXPECT_EQ(withHue(1.25F), withHue(0.25F));
    EXPECT_EQ(withHue(-0.25F), withHue(0.75F));
    EXPECT_NE(withHue(0.25F), withHue(0.75F));
    for (const float hue : {1.0F, -1.25F, -1.0F, -7.5F, INFINITY, -INFINITY, NAN})
        EXPECT_EQ(withHue(hue), CRGBColor(255, 0, 0, 7)) << hue;

    const std::tuple<float, CRGBColor, CRGBColor> cases[] = {
        {-1, {255, 255, 255, 7}, {0, 0, 0, 7}},      {NAN, {255, 255, 255, 7}, {0, 0, 0, 7}},
        {2, {255, 128, 0, 7}, {255, 128, 0, 7}},     {INFINITY, {255, 128, 0, 7}, {255, 128, 0, 7}},
        {0.5F, {255, 191, 127, 7}, {127, 64, 0, 7}},
    };
    for (const auto& [value, saturated, luminous] : cases)
    {
        CRGBColor changed = color;
        changed.SetSaturation(value);
        EXPECT_EQ(changed, saturated) << value;
        changed = color;
        changed.SetLuminance(value);
        EXPECT_EQ(changed, luminous) << value;
    }
}

TEST(CRGBColor, DarkensAndLightensWithinTheModel)
{
    const CRGBColor color(255, 128, 0, 7);
    EXPECT_EQ(color.CreateDarken(0.25F), CRGBColor(191, 96, 0, 7));
    EXPECT_EQ(color.CreateDarken(3), CRGBColor(0, 0, 0, 7));
    EXPECT_EQ(color.CreateDarken(-3), color);
    EXPECT_EQ(color.CreateDarken(NAN), CRGBColor(0, 0, 0, 7));
    EXPECT_EQ(CRGBColor(51, 51, 51).CreateLighten(0.5F), CRGBColor(178, 178, 178));
    EXPECT_EQ(color.CreateLighten(9), color);
    CRGBColor changed = color;
    changed.Darken(0.25F);
    EXPECT_EQ(changed, color.CreateDarken(0.25F));
    changed.Lighten(-3);
    EXPECT_EQ(changed, CRGBColor(0, 0, 0, 7));
}

TEST(CRGBColor, ArithmeticEndsAtTheLimitsAndTreatsAlphaPerOperator)
{
    const CRGBColor color(100, 100, 100, 10);
    const auto scaled = [&](float factor) {
        CRGBColor result = color;
        result *= factor;
        return result;
    };
    EXPECT_EQ(scaled(2), CRGBColor(200, 200, 200, 20));
    EXPECT_EQ(scaled(3), CRGBColor(255, 255, 255, 30));
    EXPECT_EQ(scaled(-1), CRGBColor(0, 0, 0, 0));
    EXPECT_EQ(scaled(NAN), CRGBColor(0, 0, 0, 0));
    EXPECT_EQ(color * 2, CRGBColor(200, 200, 200, 255));
    EXPECT_EQ(color * 0.999, CRGBColor(99, 99, 99, 255));
    EXPECT_EQ(color * 0.999F, CRGBColor(99, 99, 99, 255));
    EXPECT_EQ(color * 0.29F, CRGBColor(29, 29, 29, 255)); // 28.9999992 is no float
    EXPECT_EQ(color * 0.29, CRGBColor(28, 28, 28, 255));
    EXPECT_EQ(color * 1e300, CRGBColor(255, 255, 255, 255));
    EXPECT_EQ(color * -1e300, CRGBColor(0, 0, 0, 255));
    EXPECT_EQ(color + CRGBColor(1, 155, 156, 9), CRGBColor(101, 255, 255, 255));
    EXPECT_EQ(color - CRGBColor(1, 100, 101, 9), CRGBColor(99, 0, 0, 255));

    const CRGBColor a(10, 20, 30, 40);
    const CRGBColor b(20, 40, 10, 80);
    EXPECT_EQ(CRGBColor::Interpolate(1, a, b, true), a);
    EXPECT_EQ(CRGBColor::Interpolate(0, a, b, true), b);
    EXPECT_EQ(CRGBColor::Interpolate(0.25F, a, b, false), CRGBColor(17, 35, 15, 255));
    EXPECT_EQ(CRGBColor::Interpolate(100, a, b, true), CRGBColor(0, 0, 255, 0));
}

TEST(CRGBColor, TextsFollowTheLanguage)
{
    const XLanguage before = XGetLanguage();
    const CRGBColor color(255, 128, 0, 7);
    XSetLanguage(XLanguage::English);
    EXPECT_STREQ(color.GetRGBString(), L"255 128 0 (RGB)");
    EXPECT_STREQ(color.GetRGBAString(), L"255 128 0 7 (RGBA)");
    XSetLanguage(XLanguage::French);
    EXPECT_STREQ(color.GetRGBString(), L"255 128 0 (RVB)");
    EXPECT_STREQ(color.GetRGBAString(), L"255 128 0 7 (RVBA)");
    XSetLanguage(before);
}

TEST(CRGBColor, IsStoredAsItsFourBytes)
{
    CRGBColor color(1, 2, 3, 4);
    CXMemFile file;
    {
        CXArchive archive(&file, xArchiveStore);
        color.Serialize(archive);
        archive << CRGBColor(5, 6, 7, 8);
        archive.Close();
    }
    EXPECT_EQ(Bytes(file.GetBuffer(), file.GetBuffer() + file.GetLength()), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    file.SeekToBegin();
    CXArchive archive(&file, xArchiveLoad);
    CRGBColor loaded;
    archive >> loaded;
    EXPECT_EQ(loaded, color);
    loaded.Serialize(archive);
    EXPECT_EQ(loaded, CRGBColor(5, 6, 7, 8));
}

TEST(CRGB32Color, SumsWithoutEndingAtALimit)
{
    CRGB32Color sum;
    EXPECT_EQ(sum.ConvertToRGBColor(65793), CRGBColor(0, 0, 0, 255)); // 0xFFFFFF / 0x10101
    sum = CRGBColor(200, 200, 200, 255);
    sum += CRGBColor(200, 200, 200, 255);
    EXPECT_EQ(sum.ConvertToRGBColor(2), CRGBColor(200, 200, 200, 255));
    EXPECT_EQ(sum.ConvertToRGBColor(1), CRGBColor(144, 144, 144, 254));
    EXPECT_EQ(sum.ConvertToRGBColor(0), CRGBColor(255, 255, 255, 255));
    sum *= 0.5F;
    sum -= CRGBColor(100, 199, 200, 0);
    EXPECT_EQ(sum.ConvertToRGBColor(1), CRGBColor(100, 1, 0, 255));
    sum -= CRGBColor(255, 0, 255, 0); // below 0 it wraps
    EXPECT_EQ(sum.ConvertToRGBColor(16777216), CRGBColor(255, 0, 255, 0));
    sum.SetColor(1, 2, 3);
    sum *= NAN;
    EXPECT_EQ(sum.ConvertToRGBColor(1), CRGBColor(0, 0, 0, 0));
    EXPECT_EQ(CRGB32Color(300, 2, 3, 4).ConvertToRGBColor(1), CRGBColor(44, 2, 3, 4));
    EXPECT_EQ(CRGB32Color(4000000000U, 2147483777U, 0, 1).ConvertToRGBColor(0.5F), CRGBColor(0, 2, 0, 2));
    EXPECT_EQ(CRGB32Color(1, 257, 0, 5).ConvertToRGBColor(-1), CRGBColor(255, 255, 0, 251));
}

TEST(CRGB32Color, LosesNoDigitsOfLargeSums)
{
    for (unsigned pixels = 60000; pixels < 16777216; pixels += 5803)
    {
        const CRGB32Color sum(pixels * 255, pixels * 254, pixels, 0);
        ASSERT_EQ(sum.ConvertToRGBColor(static_cast<float>(pixels)), CRGBColor(255, 254, 1, 0)) << pixels;
    }
    CRGB32Color sum(16777217, 16777219, 4294967295, 7);
    EXPECT_EQ(sum.ConvertToRGBColor(1), CRGBColor(1, 3, 255, 7));
    sum *= 1;
    EXPECT_EQ(sum.ConvertToRGBColor(1), CRGBColor(1, 3, 255, 7));
    EXPECT_EQ(CRGB32Color(2559, 2560, 0, 0).ConvertToRGBColor(10), CRGBColor(255, 0, 0, 0));
    // Smaller sums are multiplied in single precision: in double precision the factor gives 6.9999999.
    CRGB32Color small(10, 16777215, 0, 0);
    small *= 0.7F;
    EXPECT_EQ(small.ConvertToRGBColor(1)[0], 7);
    EXPECT_EQ(small.ConvertToRGBColor(256)[1], static_cast<unsigned char>(11744050 / 256));
}
} // namespace
