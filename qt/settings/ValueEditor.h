#pragma once

#include "qt/settings/ValueText.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;

namespace tev::browser
{
/// Edits a value, or makes a new one with a name and a kind. A value that is not edited keeps its bytes.
class ValueEditor : public QDialog
{
    Q_OBJECT
public:
    /// Of a value that is there.
    ValueEditor(const SettingsSource& source, const QString& name, const Value& value, bool isReadOnly,
                QWidget* parent);
    /// Of a new one.
    ValueEditor(const SettingsSource& source, QWidget* parent);

    Value GetValue() const { return m_value; }
    std::wstring GetId() const { return m_id; }

private:
    void Build(bool isNew, bool isReadOnly);
    void Show(const EditText& text);
    EditText Current() const;
    void Check();
    void ChooseKind();
    void ChooseEscapes(bool isEscaped);

    const SettingsSource& m_source;
    Value m_value;
    std::wstring m_id;
    EditText m_shown;
    bool m_isNew;
    bool m_isEdited = false;
    QLineEdit* m_name = nullptr;
    QComboBox* m_kind = nullptr;
    QWidget* m_editors = nullptr;
    QWidget* m_editor = nullptr; ///< the one of the three that is shown
    QLineEdit* m_line = nullptr;
    QComboBox* m_choice = nullptr;
    QPlainTextEdit* m_text = nullptr;
    QCheckBox* m_escapes = nullptr;
    QLabel* m_range = nullptr;
    QLabel* m_fault = nullptr;
    QDialogButtonBox* m_buttons = nullptr;
};
} // namespace tev::browser
