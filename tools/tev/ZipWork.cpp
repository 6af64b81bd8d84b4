#include "tools/tev/ZipWork.h"

#include "objects/CXFileException.h"
#include "objects/LastFailure.h"
#include "tools/tev/Tool.h"
#include "zip/ZipTexts.h"

#include <algorithm>
#include <numeric>
#include <set>

namespace tev::tool
{
namespace
{
CXTString<wchar_t> WideText(const std::string& text)
{
    return CXTString<wchar_t>(Widen(text).c_str());
}
} // namespace

ZipWork::ZipWork(const std::string& name, ZipOpenMode mode) : m_name(name)
{
    Require(m_zip.Open(WideText(name), mode, false, this), name);
}

ZipWork::~ZipWork()
{
    m_zip.Discard();
}

std::vector<unsigned> ZipWork::Find(const std::vector<std::string>& names)
{
    if (names.empty())
    {
        std::vector<unsigned> all(static_cast<unsigned>(m_zip.GetCount(false)));
        std::iota(all.begin(), all.end(), 0u);
        return all;
    }
    std::set<unsigned> found;
    for (const std::string& name : names)
    {
        const CXTString<wchar_t> wide = WideText(name);
        const unsigned index = m_zip.FindFile(wide, true, false);
        CXArray<unsigned, unsigned> matching;
        if (index != xZipNoEntry)
            found.insert(index);
        else if (m_zip.FindMatchingFiles(matching, wide, true, false) != 0)
            found.insert(matching.begin(), matching.end());
        else
            throw Failure(m_name, "has no entry " + name);
    }
    return std::vector<unsigned>(found.begin(), found.end());
}

void ZipWork::ExpectBytes(unsigned __int64 total)
{
    m_progress.emplace(m_name, total, Progress::Beside::kNothing);
}

std::string FailureText(const CZip& zip)
{
    return Narrow(zip.GetLastFailure() == XZipFailure::kSystem ? XGetSystemErrorText(zip.GetLastSystemError())
                                                               : XGetText(zip.GetLastFailure()));
}

bool ZipWork::Save(bool mayBeRepeated)
{
    m_zip.Close(false);
    m_progress.reset();
    if (mayBeRepeated && m_zip.GetLastFailure() == XZipFailure::kReplaced)
        return false;
    Require(m_zip.GetLastFailure() == XZipFailure::kNone, m_name);
    return true;
}

void ZipWork::Require(bool done, const std::string& subject) const
{
    if (done)
        return;
    if (m_zip.GetLastFailure() == XZipFailure::kSystem)
        CXFileException::Throw(CXFileException::OsErrorToException(m_zip.GetLastSystemError()), WideText(subject));
    throw Failure(subject, FailureText(m_zip));
}

bool ZipWork::OnProgress(unsigned __int64 processed)
{
    m_done = processed;
    if (m_progress)
        m_progress->Show(m_doneBefore + m_done);
    return !EndingSignalsHeld::HasCome();
}

int ZipWork::OnExtractEntry(const CZipFileInfo&, const wchar_t*)
{
    return EndingSignalsHeld::HasCome() ? xZipStop : xZipExtractEntry;
}

void ZipWork::OnActionBegin(XZipAction action, unsigned __int64 total)
{
    m_done = 0;
    if (action == XZipAction::kSaving)
        ExpectBytes(total);
}

void ZipWork::OnActionEnd(XZipAction) noexcept
{
    m_doneBefore += m_done;
}

std::vector<ZipAdding> FilesToAdd(const std::vector<std::string>& paths, bool fullPath)
{
    namespace fs = std::filesystem;
    std::vector<ZipAdding> files;
    for (const std::string& name : paths)
    {
        fs::path path = SystemPath(name).lexically_normal();
        if (!path.has_filename())
            path = path.parent_path();
        const fs::path named = path == "." || path == ".." ? fs::canonical(path) : path;
        const fs::path entry = fullPath ? named : named.filename();
        files.push_back({name, entry.string()});
        if (!fs::is_directory(path))
            continue;
        std::vector<fs::path> within;
        std::error_code failure;
        fs::recursive_directory_iterator next(path, failure);
        for (; !failure && next != fs::recursive_directory_iterator(); next.increment(failure))
            within.push_back(next->path());
        if (failure) // of the folder that was to be read next
            throw Failure(within.empty() ? name : within.back().string(), failure.message());
        std::sort(within.begin(), within.end());
        for (const fs::path& file : within)
            files.push_back({file.string(), (entry / file.lexically_relative(path)).string()});
    }
    return files;
}

} // namespace tev::tool
