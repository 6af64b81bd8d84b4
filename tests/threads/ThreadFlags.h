#pragma once

#include "threads/CXThread.h"

namespace tev::test
{
constexpr unsigned kSuspended = CXThread::kBeginSuspended;
constexpr unsigned kOwned = CXThread::kBeginWithoutAutoDelete;
} // namespace tev::test
