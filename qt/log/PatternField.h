#pragma once

#include "qt/log/LineMatcher.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLineEdit;

/// Where a person writes a pattern: its text, its kind, and whether case matters.
class PatternField : public QWidget
{
    Q_OBJECT

public:
    /// The name says what the pattern is for.
    explicit PatternField(const QString& name, QWidget* parent = nullptr);

    LinePattern GetPattern() const;
    void SetPattern(const LinePattern& pattern);
    QLineEdit& GetEdit() const noexcept { return *m_edit; }
    QComboBox& GetKind() const noexcept { return *m_kind; }

Q_SIGNALS:
    void PatternChanged();

private:
    QComboBox* m_kind;
    QLineEdit* m_edit;
    QCheckBox* m_case;
};
