#pragma once

#include "qt/log/LogColors.h"

#include <QDialog>

class PatternField;
class QComboBox;
class QListWidget;
class QPushButton;

/// Edits the rules by which lines are coloured, of which the first that matches counts.
class ColorDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ColorDialog(std::vector<ColorRule> rules, QWidget* parent = nullptr);

    /// Rules without a text are left out.
    std::vector<ColorRule> GetRules() const;

private:
    void ShowRules();
    void ShowRule(int row);
    void TakeRule();
    void ChooseColor(int index);
    void Add();
    void Remove();
    void Move(int by);
    void Describe(int row);

    std::vector<ColorRule> m_rules;
    bool m_isShowing = false;
    QListWidget* m_list;
    PatternField* m_pattern;
    QComboBox* m_color;
    QPushButton* m_remove;
    QPushButton* m_up;
    QPushButton* m_down;
};
