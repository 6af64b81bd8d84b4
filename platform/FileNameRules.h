#pragma once

namespace tev::platform
{
/// What a system makes of names of files.
struct FileNameRules
{
    /// Names such as "con" and "nul.txt" open devices in every folder.
    bool hasDevices = false;
};

FileNameRules SystemFileNameRules() noexcept;
} // namespace tev::platform
