#include "crash/XMinidump.h"
#include "files/CXFile.h"
#include "objects/CXArchiveException.h"
#include "objects/CXFileException.h"
#include "objects/CXInternetException.h"
#include "objects/LastFailure.h"
#include "settings/RegistryText.h"
#include "tests/support/Testing.h"
#include "zip/ZipTexts.h"

namespace
{
using Text = CXTString<wchar_t>;

TEST(ExceptionText, SaysAllThatIsKnown)
{
    struct CMeshException : CXException
    {
        using CXException::CXException;
    };
    const CXFileException file(fileNotFound, L"a.obj");
    CXFileException opened;
    errno = EACCES;
    CXFileException::ThrowOsError(fileNone, L"d.obj", &opened);
    CXFileException refused;
    errno = EINVAL;
    CXFileException::ThrowOsError(fileNone, L"e.obj", &refused);
    const CXFileException said(fileDiskFull, L"b.obj", L"Save elsewhere.");
    const CXArchiveException archive(archiveBadSchema, L"c.cus");
    const CXInternetException internet(77, 12007);
    const CXInternetException unknown(0, 12999);
    const CXMemoryException memory;
    const CXUserException user(L"At the second file.");
    const CMeshException mesh(L"no vertex");
    const std::tuple<const CXException*, const wchar_t*, const wchar_t*> cases[] = {
        {nullptr, L"", L""},
        {&file, L"Cannot find a.obj.", L"Impossible de trouver a.obj."},
        {&opened, L"Cannot access d.obj: permission was denied. (system error 5)",
         L"Impossible d'accéder à d.obj : la permission a été refusée. (erreur système 5)"},
        {&refused,
         L"An argument is not valid: a name is too long, holds what is not a character, or lies too deep. (e.obj, "
         L"system error 87)",
         L"Un argument n'est pas valide : un nom est trop long, contient autre chose que des caractères, ou est trop "
         L"profond. (e.obj, erreur système 87)"},
        {&said, L"Cannot write b.obj: the disk is full. Save elsewhere.",
         L"Impossible d'écrire b.obj : le disque est plein. Save elsewhere."},
        {&archive, L"Cannot read c.cus: it was written by another version.",
         L"Impossible de lire c.cus : il a été écrit par une autre version."},
        {&internet, L"The name of the server was not found. (system error 12007, context 77)",
         L"Le nom du serveur est introuvable. (erreur système 12007, contexte 77)"},
        {&unknown, L"An internet operation failed. (system error 12999)",
         L"Une opération Internet a échoué. (erreur système 12999)"},
        {&memory, L"There is not enough memory.", L"La mémoire est insuffisante."},
        {&user, L"The operation was cancelled. At the second file.", L"L'opération a été annulée. At the second file."},
        {&mesh, L"The operation failed. no vertex", L"L'opération a échoué. no vertex"},
    };
    for (const auto& [exception, english, french] : cases)
    {
        EXPECT_EQ(XGetExceptionText(exception, XLanguage::English), english);
        EXPECT_EQ(XGetExceptionText(exception, XLanguage::French), french);
    }
}

TEST(ReasonTexts, EachReasonHasItsOwnInBothLanguages)
{
    const auto expect = [](unsigned count, const auto& textOf) {
        std::set<std::wstring> texts;
        for (unsigned i = 0; i <= count; ++i)
        {
            const Text english = textOf(i, XLanguage::English);
            EXPECT_EQ(english.IsEmpty(), i == count) << i;
            EXPECT_EQ(english == textOf(i, XLanguage::French), i == count) << i;
            EXPECT_TRUE(texts.insert(english.GetConstBuffer()).second) << i;
        }
    };
    expect(19, [](unsigned i, XLanguage language) { return XGetText(XZipFailure(i), language); });
    expect(10, [](unsigned i, XLanguage language) { return XGetText(CXExtractionFailure(i), language); });
    expect(7, [](unsigned i, XLanguage language) { return XGetText(CXStreamDamage(i), language); });
    expect(9, [](unsigned i, XLanguage language) { return XGetText(CXSkipReason(i), language); });
    expect(6, [](unsigned i, XLanguage language) { return XGetText(XRegistryFault(i), language); });
    expect(7, [](unsigned i, XLanguage language) { return XGetText(XMinidumpStackEnd(i), language); });
    EXPECT_EQ(XGetSystemErrorText(5, XLanguage::French), L"L'accès a été refusé.");
    EXPECT_EQ(XGetSystemErrorText(7777, XLanguage::English), L"The system refused the operation. (system error 7777)");
}
} // namespace
