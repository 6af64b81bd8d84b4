#pragma once

#include "settings/PreferenceFile.h"

#include <vector>

namespace tev
{
/// The records of a preference file's bytes, damaged ones too; they follow one another without gaps behind the number of
/// records. Each sound one can be loaded. False when the file is damaged. Throws std::bad_alloc.
[[nodiscard]] bool SplitPreferences(const std::vector<unsigned char>& file, std::vector<XPreferenceRecord>& records);
} // namespace tev
