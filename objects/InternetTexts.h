#pragma once

#include "text/Language.h"

namespace tev
{
/// What an internet code (from 12001 on) means, null for one that has no text.
const wchar_t* FindInternetText(unsigned error, XLanguage language) noexcept;
} // namespace tev
