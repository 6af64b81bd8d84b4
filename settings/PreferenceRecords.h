#pragma once

#include "settings/PreferenceFile.h"

#include <vector>

class CCustomData;

namespace tev
{
/// The records of a preference file's bytes, those that are damaged too; they follow one another without gaps behind
/// the number of records. False when the file is damaged.
[[nodiscard]] bool SplitPreferences(const std::vector<unsigned char>& file, std::vector<XPreferenceRecord>& records);

/// Reads records until it finds a sound one of these keys, and its store; else `record` is not sound, and `store`
/// anything. False when what was read is damaged.
bool FindPreference(const std::vector<unsigned char>& file, unsigned key1, unsigned key2, XPreferenceRecord& record,
                    CCustomData& store);
} // namespace tev
