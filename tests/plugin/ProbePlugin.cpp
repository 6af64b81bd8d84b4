#include "tests/plugin/Probe.h"

#include "objects/CXFileException.h"
#include "objects/ThreadException.h"
#include "services/CXModule.h"

namespace
{
/// Known to the plug-in alone.
class HiddenException : public CXException
{
public:
    X_DECLARE_CLASS(HiddenException)
};

class Probe : public CXObject, public ProbeInterface
{
public:
    X_DECLARE_CLASS(Probe)

    void Throw(What what) override
    {
        switch (what)
        {
        case LibraryException:
            CXFileException::Throw(fileDiskFull, L"from the plug-in", L"message");
        case PluginException:
            XThrow<HiddenException>();
        case HeaderException:
            XThrow<ProbeException>(77);
        }
    }
};

X_IMPLEMENT_ABSTRACT_CLASS(HiddenException, CXException, xSchemaNotSerializable)
X_IMPLEMENT_CLASS(Probe, CXObject, 5)
} // namespace

X_MODULE_FUNCTION int ProbeVersion()
{
    return 3;
}
