#include "tests/support/Testing.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

TEST(TevColour, ShowsTheColourAndItsCoordinates)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"#ff8000"}, "#FF8000  255 128 0 (RGB)  hue 0.0837, saturation 1.0000, luminance 1.0000\n"},
        {{"255,128,0"}, "#FF8000  255 128 0 (RGB)  hue 0.0837, saturation 1.0000, luminance 1.0000\n"},
        {{"255,1,0"}, "#FF0100  255 1 0 (RGB)  hue 0.0007, saturation 1.0000, luminance 1.0000\n"},
        {{"00FF00", "--darken", "0.5", "--lighten", "0.25"},
         "#00BE00  0 190 0 (RGB)  hue 0.3333, saturation 1.0000, luminance 0.7451\n"},
        {{"#ff0000", "--hue", "-0.5"}, "#00FFFF  0 255 255 (RGB)  hue 0.5000, saturation 1.0000, luminance 1.0000\n"},
    };
    for (const auto& [arguments, output] : cases)
    {
        std::vector<std::string> words = {"colour"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        EXPECT_THAT(RunTev(words), FieldsAre(0, output, _));
    }
}

TEST(TevColour, RefusesInvalidColours)
{
    for (const char* text : {"red", "#ff80", "#ff80000", "#gg0000", "1,2", "1,2,3,4", "1,2,256", "1,,3", "-1,2,3", ""})
    {
        EXPECT_THAT(RunTev({"colour", text}), FieldsAre(2, "", HasSubstr("tev: "))) << text;
    }
    EXPECT_EQ(RunTev({"colour"}).m_exitCode, 2);
    EXPECT_EQ(RunTev({"colour", "#000000", "--darken", "much"}).m_exitCode, 2);
}
} // namespace
