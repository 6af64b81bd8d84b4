#pragma once

#include "qt/settings/SettingsWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressDialog>
#include <QTableView>
#include <QTest>
#include <QTreeView>
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>

namespace tev::browser::test
{
constexpr int kPatience = 30000;

/// Answers the next dialogs, each when it is shown.
class Person
{
public:
    using Answer = std::function<void(QDialog& dialog)>;

    /// Progress is not answered, unless the test is about that: how long something takes is not known.
    explicit Person(std::vector<Answer> answers, bool answersProgress = false) : m_answers(std::move(answers))
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this, answersProgress] {
            auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            if (dialog == nullptr || !dialog->isVisible() || m_isAnswering ||
                (!answersProgress && qobject_cast<QProgressDialog*>(dialog) != nullptr))
                return;
            m_isAnswering = true;
            if (m_next == m_answers.size())
            {
                ADD_FAILURE() << "an unexpected dialog: " << TextOf(*dialog).toStdString();
                dialog->reject();
            }
            else
                m_answers[m_next++](*dialog);
            m_isAnswering = false;
        });
        m_timer.start(10);
    }
    ~Person()
    {
        EXPECT_EQ(m_answers.size(), m_next) << "dialogs that were shown";
        Activate();
    }
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;

    /// A display without a window manager activates no window.
    static void Activate()
    {
        for (QWidget* const window : QApplication::topLevelWidgets())
        {
            if (qobject_cast<QMainWindow*>(window) != nullptr && window->isVisible())
                QApplication::setActiveWindow(window);
        }
    }

    static QString TextOf(const QDialog& dialog)
    {
        const auto* const box = qobject_cast<const QMessageBox*>(&dialog);
        return box == nullptr ? dialog.windowTitle() : box->text() + u'\n' + box->informativeText();
    }
    static Answer Click(QMessageBox::StandardButton button, const QString& part = {})
    {
        return [=](QDialog& dialog) {
            EXPECT_TRUE(TextOf(dialog).contains(part)) << TextOf(dialog).toStdString();
            auto* const box = qobject_cast<QMessageBox*>(&dialog);
            ASSERT_NE(nullptr, box) << TextOf(dialog).toStdString();
            QTest::mouseClick(box->button(button), Qt::LeftButton);
        };
    }
    /// Types over what the focus is in, and presses the key that accepts.
    static Answer Type(const QString& text)
    {
        return [=](QDialog& dialog) {
            QWidget* const editor = dialog.focusWidget();
            ASSERT_NE(nullptr, editor);
            if (auto* const lines = qobject_cast<QPlainTextEdit*>(editor))
                lines->selectAll();
            else if (auto* const line = qobject_cast<QLineEdit*>(editor))
                line->selectAll();
            QTest::keyClicks(editor, text);
            dialog.accept();
        };
    }

    /// Chooses a file in a dialog for files.
    static Answer Choose(const QString& file)
    {
        return [=](QDialog& dialog) {
            auto* const name = dialog.findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
            ASSERT_NE(nullptr, name) << TextOf(dialog).toStdString();
            name->setText(file);
            dialog.accept();
        };
    }

private:
    std::vector<Answer> m_answers;
    std::size_t m_next = 0;
    bool m_isAnswering = false;
    QTimer m_timer;
};

/// Looks at everything in a source, as a person does who opens every node.
inline void LookAtAll(std::unique_ptr<SettingsSource> source)
{
    SettingsWindow window(std::move(source));
    window.show();
    auto* const tree = window.findChild<QTreeView*>();
    const auto* const table = window.findChild<QTableView*>();
    auto& nodes = static_cast<NodeModel&>(*tree->model());
    auto& values = static_cast<ValueModel&>(*table->model());
    std::vector<Place> places{{}};
    for (std::size_t i = 0; i < places.size() && i < 200; ++i)
    {
        const QModelIndex node = nodes.Find(places[i]);
        tree->setCurrentIndex(node);
        tree->expand(node);
        ASSERT_TRUE(QTest::qWaitFor([&] { return !nodes.IsLoading() && !values.IsLoading(); }, kPatience));
        for (int row = 0; row < std::min(values.rowCount(), 50); ++row)
            EXPECT_FALSE(values.LineOf(row).isEmpty());
        for (int row = 0; row < nodes.rowCount(node); ++row)
            places.push_back(nodes.PlaceOf(nodes.index(row, 0, node)));
    }
    window.grab();
}

} // namespace tev::browser::test
