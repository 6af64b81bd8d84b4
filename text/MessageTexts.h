#pragma once

#include "text/Language.h"

namespace tev
{
/// The message text of that number in the current language, null for an unknown number. Valid until the program ends.
const wchar_t* FindMessageText(unsigned id) noexcept;
const wchar_t* FindMessageText(unsigned id, XLanguage language) noexcept;

// The first numbers of the texts of enumerated reasons: the value of the reason is added.
constexpr unsigned kTextZipFailure = 0xE200;
constexpr unsigned kTextExtractionFailure = 0xE220;
constexpr unsigned kTextSkipReason = 0xE230;
constexpr unsigned kTextStreamDamage = 0xE240;
constexpr unsigned kTextRegistryFault = 0xE250;
constexpr unsigned kTextFailure = 0xE260; ///< of an XFailureKind
constexpr unsigned kTextNoStore = kTextFailure + 6;
constexpr unsigned kTextUnknownException = kTextFailure + 7;
constexpr unsigned kTextNoEncoding = kTextFailure + 8;
constexpr unsigned kTextFailureDetail = 0xE270;
constexpr unsigned kTextThrown = 0xE280;
constexpr unsigned kTextStackEnd = 0xE290;
constexpr unsigned kTextSystemError = 0xE400; ///< of a system code that the library gives itself
constexpr unsigned kTextUnnamedFile = 0xF006;
constexpr unsigned kTextFileCause = 0xF1A0;
constexpr unsigned kTextArchiveCause = 0xF1B0;
} // namespace tev
