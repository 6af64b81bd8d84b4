#pragma once

#include "text/CXTString.h"

#include <functional>
#include <vector>

class CCustomData;

// Preference files: many stores in one file, each under two keys. CCustomData saves into them and loads from them; here
// are the operations on a file as a whole; XLastFailure() says why one returned false. docs/formats.md describes the bytes.

/// One store in a preference file, or a run of damaged bytes.
struct XPreferenceRecord
{
    unsigned int m_key1 = 0; ///< of damaged bytes: what stands in the place of the keys
    unsigned int m_key2 = 0;
    unsigned __int64 m_offset = 0; ///< of the keys, in the file
    unsigned __int64 m_size = 0;   ///< with the keys
    unsigned int m_valueCount = 0;
    bool m_isSound = false;
};

/// The records of a preference file in their order. False when the file is damaged: a record is not sound, or the
/// number that the file begins with is not that of its records. Throws CXFileException when the file cannot be read.
/// Safe from several threads at once.
[[nodiscard]] TEVTOOLS_API bool XListPreferences(const CXTString<wchar_t>& path,
                                                 std::vector<XPreferenceRecord>& records);

/// Removes the store of these keys from the file, in the same way in which CCustomData::SaveToPrefs adds one. False when
/// there was none or the file is damaged, and where SaveToPrefs returns false.
/// Safe from several threads at once.
TEVTOOLS_API bool XRemovePreference(const CXTString<wchar_t>& path, unsigned int key1, unsigned int key2);
/// Removes the store only while it is equal to the expected one, so that what another program saved meanwhile is not lost:
/// else false, and the reason is error 1237.
TEVTOOLS_API bool XRemovePreference(const CXTString<wchar_t>& path, unsigned int key1, unsigned int key2,
                                    const CCustomData& expected);

/// Changes the store of these keys: loads it into a store that only `change` knows, an empty one where the file or the
/// store is not there, calls `change`, and saves the result as CCustomData::SaveToPrefs does. No other thread or process
/// saves into the folder meanwhile, so that no change is lost between loading and saving.
/// False, with the file as it was but for the last step, where SaveToPrefs returns false, and where the file cannot be read
/// or is damaged and has no sound store of these keys; `change` is not called where loading failed. What `change` throws is passed on, and leaves
/// the file as it was.
/// `change` runs under the lock of the folder, and others wait for at most 10 seconds, so it should be short. Saving
/// preferences into the same folder, by this function too, is refused to it (false). It must not wait for a store that another thread may be
/// saving, nor for a thread that may save into the folder: the lock of a store is taken before that of a folder.
/// Safe from several threads at once.
[[nodiscard]] TEVTOOLS_API bool XUpdatePreferences(const CXTString<wchar_t>& path, unsigned int key1, unsigned int key2,
                                                   const std::function<void(CCustomData& store)>& change);
