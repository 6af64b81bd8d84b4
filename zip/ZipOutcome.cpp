#include "zip/ZipOutcome.h"

#include "platform/SystemErrors.h"

namespace tev
{
namespace
{
struct FailureRow
{
    platform::ZipFailure m_engine;
    XZipFailure m_failure;
};

constexpr FailureRow kFailures[] = {
    {platform::ZipFailure::None, XZipFailure::kNone},
    {platform::ZipFailure::System, XZipFailure::kSystem},
    {platform::ZipFailure::NoArchive, XZipFailure::kNoArchive},
    {platform::ZipFailure::Damaged, XZipFailure::kDamaged},
    {platform::ZipFailure::Unsupported, XZipFailure::kUnsupported},
    {platform::ZipFailure::MissingVolume, XZipFailure::kMissingVolume},
    {platform::ZipFailure::PasswordNeeded, XZipFailure::kPasswordNeeded},
    {platform::ZipFailure::WrongPassword, XZipFailure::kWrongPassword},
    {platform::ZipFailure::WrongPasswordOrDamaged, XZipFailure::kWrongPasswordOrDamaged},
    {platform::ZipFailure::Exists, XZipFailure::kExists},
    {platform::ZipFailure::Cancelled, XZipFailure::kCancelled},
    {platform::ZipFailure::InvalidArgument, XZipFailure::kInvalidArgument},
};

} // namespace

ZipOutcome ZipOutcome::Of(const platform::ZipError& error) noexcept
{
    for (const FailureRow& row : kFailures)
    {
        if (row.m_engine == error.failure)
            return {row.m_failure, error.systemError};
    }
    return {XZipFailure::kDamaged, 0};
}

ZipOutcome ZipOutcome::OfSystem() noexcept
{
    return {XZipFailure::kSystem, platform::LastSystemError()};
}
} // namespace tev
