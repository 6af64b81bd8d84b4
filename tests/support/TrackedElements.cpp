#include "tests/support/TrackedElements.h"

namespace tev::test
{
X_IMPLEMENT_CLASS(TrackedElements, CElementMethods, 1)
} // namespace tev::test
