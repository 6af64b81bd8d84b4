#pragma once

#include "qt/toolkit/QtText.h"
#include "text/Language.h"

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QAbstractSpinBox>
#include <QLabel>
#include <QScreen>
#include <QTest>
#include <functional>
#include <gmock/gmock.h>

namespace tev::test
{
/// What a person hears of a control.
inline std::string NameOf(const QWidget& widget)
{
    const auto* const button = qobject_cast<const QAbstractButton*>(&widget);
    if (!widget.accessibleName().isEmpty() || button == nullptr)
        return widget.accessibleName().toStdString();
    return QString(button->text()).remove(u'&').toStdString();
}

/// The names of the controls that Tab goes to, from the one that has the focus on until it comes again.
inline std::vector<std::string> TabOrder(const QWidget& window)
{
    std::vector<std::string> names;
    EXPECT_NE(nullptr, window.focusWidget());
    const QWidget* const first = window.focusWidget();
    QWidget* next = window.focusWidget();
    for (bool isFirst = true; next != nullptr && (isFirst || next != first) && names.size() < 50; isFirst = false)
    {
        names.push_back(NameOf(*next));
        QTest::keyClick(next, Qt::Key_Tab);
        next = window.focusWidget();
    }
    return names;
}

/// Does it in both languages, with texts as they are and half as long again.
inline void InEachLanguage(const std::function<void()>& look)
{
    const XLanguage before = XGetLanguage();
    for (const XLanguage language : {XLanguage::English, XLanguage::French})
    {
        for (const bool isLengthened : {false, true})
        {
            XSetLanguage(language);
            XLengthenTexts(isLengthened);
            look();
        }
    }
    XLengthenTexts(false);
    XSetLanguage(before);
}

/// That all that can be used has a name, and that no text is cut off.
inline void ExpectSoundWindow(const QWidget& window)
{
    QCoreApplication::processEvents(); // texts that were set are laid out
    EXPECT_EQ(window.size(), window.size().boundedTo(window.screen()->availableSize()))
        << window.width() << " x " << window.height();
    for (const QWidget* const widget : window.findChildren<QWidget*>())
    {
        if (!widget->isVisible())
            continue;
        const auto* const button = qobject_cast<const QAbstractButton*>(widget);
        const auto* const label = qobject_cast<const QLabel*>(widget);
        const QWidget* const parent = widget->parentWidget();
        const bool isPart = qobject_cast<const QAbstractScrollArea*>(parent) != nullptr ||
                            qobject_cast<const QAbstractSpinBox*>(parent) != nullptr;
        const std::string what = button != nullptr  ? button->text().toStdString()
                                 : label != nullptr ? label->text().toStdString()
                                                    : widget->metaObject()->className();
        if ((widget->focusPolicy() & Qt::TabFocus) != 0 && !isPart)
        {
            EXPECT_FALSE(widget->accessibleName().isEmpty() && (button == nullptr || button->text().isEmpty())) << what;
        }
        if (button != nullptr && !button->text().isEmpty())
        {
            EXPECT_GE(widget->width(), widget->sizeHint().width()) << what;
        }
        if (label != nullptr && label->wordWrap())
        {
            EXPECT_GE(widget->height(), label->heightForWidth(label->width())) << what;
        }
        else if (label != nullptr)
        {
            EXPECT_GE(widget->width(), widget->minimumSizeHint().width()) << what;
        }
        EXPECT_TRUE(window.rect().contains(QRect(widget->mapTo(&window, QPoint()), QSize(1, 1)))) << what;
    }
}
} // namespace tev::test
