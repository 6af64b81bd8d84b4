#include "text/Language.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace
{
constexpr int kNotChosen = -1;

std::atomic<int> g_language{kNotChosen};

bool IsFrench(const char* locale) noexcept
{
    // Three letters name another language: "fry" is Frisian.
    return std::strncmp(locale, "fr", 2) == 0 && std::strchr("_-.@", locale[2]) != nullptr;
}
} // namespace

XLanguage tev::LanguageOfLocale(const char* lcAll, const char* lcMessages, const char* lang) noexcept
{
    for (const char* locale : {lcAll, lcMessages, lang})
    {
        if (locale != nullptr && *locale != 0)
            return IsFrench(locale) ? XLanguage::French : XLanguage::English;
    }
    return XLanguage::English;
}

XLanguage tev::SystemLanguage() noexcept
{
    return LanguageOfLocale(std::getenv("LC_ALL"), std::getenv("LC_MESSAGES"), std::getenv("LANG"));
}

XLanguage XGetLanguage() noexcept
{
    int language = g_language.load();
    if (language == kNotChosen)
    {
        const XLanguage found = tev::SystemLanguage();
        // A language that a host has chosen in the meantime stays.
        if (g_language.compare_exchange_strong(language, static_cast<int>(found)))
            return found;
    }
    return static_cast<XLanguage>(language);
}

void XSetLanguage(XLanguage language) noexcept
{
    g_language.store(static_cast<int>(language));
}
