#include "services/CXModule.h"

#include "objects/FailureNote.h"
#include "platform/FileInformation.h"
#include "platform/LoadedModules.h"

namespace
{
constexpr const char* kOpening = "CXModule::Open";

/// The loader knows only its own words for what failed.
void NoteNotLoaded(const CPathString& path)
{
    tev::platform::FileInformation information;
    if (!tev::platform::GetFileInformation(path, information))
        tev::NoteLastError(kOpening, path);
    else
        tev::NoteBadData(kOpening, path);
}
} // namespace

const wchar_t* CXModule::GetExtension() noexcept
{
    return tev::platform::ModuleExtension();
}

bool CXModule::Open(const CXTString<wchar_t>& path)
{
    const auto open = [&] {
        const CPathString given = path; // may be that of this object
        Close();
        m_path = given;
        m_error.Empty();
        std::wstring reason;
        void* const module = tev::platform::OpenModule(m_path, reason);
        if (module != nullptr)
        {
            m_module.reset(module, [](void* opened) { tev::platform::CloseModule(opened); });
            return true;
        }
        m_error = reason;
        if (m_error.Find(m_path, 0, false) < 0)
            m_error = m_path + L": " + m_error;
        NoteNotLoaded(m_path);
        return false;
    };
    return tev::ResultOrNote(kOpening, path, false, open);
}

void* CXModule::FindAddress(const char* name) const noexcept
{
    return m_module == nullptr || name == nullptr ? nullptr : tev::platform::FindInModule(m_module.get(), name);
}
