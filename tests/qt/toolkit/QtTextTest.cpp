#include "qt/toolkit/QtText.h"

#include "text/Language.h"

#include <QTextDocument>
#include <gmock/gmock.h>

TEST(QtText, ComesBackAsItWasAlsoWithBytesThatAreNoText)
{
    const wchar_t* texts[] = {L"", L"model.obj", L"\u00e9t\u00e9 \u6a21\u578b", L"\U0001F600!", L"a\xdc80z\xdcff"};
    for (const wchar_t* text : texts)
        EXPECT_STREQ(text, static_cast<const wchar_t*>(XFromQString(XToQString(text))));
    EXPECT_EQ(QString::fromUtf8("\xF0\x9F\x98\x80!"), XToQString(L"\U0001F600!"));
}

TEST(QtText, IsNoHtmlInToolTips)
{
    EXPECT_EQ(QStringLiteral("a & b"), XPlainToolTip(QStringLiteral("a & b")));
    const QString tip = XPlainToolTip(QStringLiteral("<b>model</b>.obj"));
    QTextDocument shown;
    ASSERT_TRUE(Qt::mightBeRichText(tip));
    shown.setHtml(tip);
    EXPECT_EQ(QStringLiteral("<b>model</b>.obj"), shown.toPlainText());
}

TEST(QtText, FollowsTheLanguageOfMessages)
{
    const XLanguage before = XGetLanguage();
    XSetLanguage(XLanguage::French);
    EXPECT_EQ(QStringLiteral("Oui"), XInLanguage(u"Yes", u"Oui"));
    XSetLanguage(XLanguage::English);
    EXPECT_EQ(QStringLiteral("Yes"), XInLanguage(u"Yes", u"Oui"));
    XLengthenTexts(true);
    EXPECT_EQ(QStringLiteral("Yes~"), XInLanguage(u"Yes", u"Oui"));
    XLengthenTexts(false);
    XSetLanguage(before);
}
