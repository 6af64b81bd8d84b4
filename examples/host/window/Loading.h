#pragma once

#include "examples/host/model/ModelFile.h"
#include "examples/host/model/Scene.h"

#include <atomic>

namespace host
{
/// Opens a model or a scene on a worker. The window asks from time to time how far it is; nothing is sent to the window, which
/// may be closed at any moment.
class Loading : public CCustomThread
{
public:
    /// `perform` runs at each step on the worker, where it is not empty.
    explicit Loading(const CPathString& path, std::function<void()> perform = {})
        : m_path(path), m_perform(std::move(perform)), m_files(1, FileState(path))
    {
    }

    const CPathString& GetPath() const noexcept { return m_path; }
    /// In thousandths; below 0 while not known.
    int GetProgress() const noexcept { return m_progress.load(); }
    /// When the worker has ended: the scene, null where it failed, and what could not be had of a model.
    std::unique_ptr<Scene> TakeScene() { return std::move(m_scene); }
    const std::vector<CXTString<wchar_t>>& GetWarnings() const noexcept { return m_warnings; }
    /// What it was read from, as it was before.
    const std::vector<FileState>& GetFiles() const noexcept { return m_files; }

protected:
    bool Start() override;
    bool Run() override;
    void Finish() override;

private:
    const CPathString m_path;
    const std::function<void()> m_perform;
    std::atomic<int> m_progress{-1};
    std::vector<FileState> m_files;
    std::unique_ptr<Scene> m_scene;
    std::vector<CXTString<wchar_t>> m_warnings;
};
} // namespace host
