#pragma once

#include "base/TevTypes.h"

/// The languages in which the library has message texts.
enum class XLanguage
{
    English,
    French
};

/// The language of message texts. Until a host chooses one it is French where the environment's locale (LC_ALL,
/// LC_MESSAGES, LANG, the first that is not empty) is French, else English. Safe from several threads at once.
TEVTOOLS_API XLanguage XGetLanguage() noexcept;

/// Chooses the language of message texts for the whole process. Safe from several threads at once.
TEVTOOLS_API void XSetLanguage(XLanguage language) noexcept;

namespace tev
{
/// The language of the environment's locale, whatever a host has chosen.
XLanguage SystemLanguage() noexcept;

/// The language that the three variables of the environment ask for; each may be null.
XLanguage LanguageOfLocale(const char* lcAll, const char* lcMessages, const char* lang) noexcept;
} // namespace tev
