#pragma once

#include "tests/qt/support/Windows.h"

#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QPlainTextEdit>
#include <QTest>
#include <QTimer>
#include <deque>
#include <functional>
#include <gmock/gmock.h>

namespace tev::test
{
constexpr int kWindowTimeMs = 30000; ///< after which a test gives up

/// Runs the work in an event loop, as windows need one.
inline void InLoop(const std::function<void()>& work)
{
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [&] {
        work();
        loop.quit();
    });
    loop.exec();
}

/// The text of a message or question; empty for other dialogs.
inline QString TextOf(const QDialog& dialog)
{
    const auto* const view = dialog.findChild<QPlainTextEdit*>();
    return view == nullptr ? QString() : view->toPlainText();
}

/// Does the steps one after the other, each with the dialog that has its text and is up then.
class Person : public QObject
{
public:
    struct Step
    {
        QString m_text; ///< empty for any
        std::function<void(QDialog&)> m_act;
    };

    explicit Person(std::vector<Step> steps) : m_steps(steps.begin(), steps.end())
    {
        m_timer.callOnTimeout(this, [this] { Look(); });
        m_timer.start(5);
    }
    ~Person() override { EXPECT_TRUE(m_steps.empty()) << m_steps.size() << " dialogs did not come"; }

    /// Waits while events are handled.
    bool WaitUntilDone() const
    {
        return QTest::qWaitFor([this] { return m_steps.empty(); }, kWindowTimeMs);
    }

private:
    void Look()
    {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (m_isBusy || m_steps.empty() || dialog == nullptr || !dialog->isVisible())
            return;
        if (!m_steps.front().m_text.isEmpty() && m_steps.front().m_text != TextOf(*dialog))
            return;
        m_isBusy = true;
        const Step step = std::move(m_steps.front());
        m_steps.pop_front();
        step.m_act(*dialog);
        m_isBusy = false;
    }

    QTimer m_timer;
    std::deque<Step> m_steps;
    bool m_isBusy = false;
};

/// The button with this text, without its mark of a key.
inline QAbstractButton* ButtonOf(const QWidget& window, const QString& text)
{
    for (QAbstractButton* const button : window.findChildren<QAbstractButton*>())
    {
        if (QString(button->text()).remove(u'&') == text)
            return button;
    }
    ADD_FAILURE() << "no button " << text.toStdString();
    return nullptr;
}

inline void Press(const QWidget& window, const QString& text)
{
    if (QAbstractButton* const button = ButtonOf(window, text))
        QTest::mouseClick(button, Qt::LeftButton);
}
} // namespace tev::test
