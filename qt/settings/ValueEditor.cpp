#include "qt/settings/ValueEditor.h"

#include "qt/toolkit/QtText.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace tev::browser
{
namespace
{
bool IsLong(Form form)
{
    return form == Form::kText || form == Form::kAnsiText || form == Form::kTextList || form == Form::kMultiText ||
           form == Form::kBytes;
}
bool HasEscapes(Form form)
{
    return IsLong(form) && form != Form::kBytes;
}

/// Where a person begins a new value.
QString StartText(const Kind& kind)
{
    switch (kind.m_form)
    {
    case Form::kBool:
        return QStringLiteral("false");
    case Form::kSigned:
    case Form::kUnsigned:
    case Form::kFloat:
        return QStringLiteral("0");
    case Form::kTime:
        return QStringLiteral("2000-01-01T00:00:00Z");
    default:
        return {};
    }
}

template <class Widget>
Widget* Named(Widget* widget, const QString& name)
{
    widget->setAccessibleName(name);
    return widget;
}
} // namespace

ValueEditor::ValueEditor(const SettingsSource& source, const QString& name, const Value& value, bool isReadOnly,
                         QWidget* parent)
    : QDialog(parent), m_source(source), m_value(value), m_isNew(false)
{
    Build(false, isReadOnly);
    m_name->setText(Escaped(name));
    m_kind->addItem(KindName(source, value.m_kind), value.m_kind);
    Show(ToEditText(source, value));
    Check();
}

ValueEditor::ValueEditor(const SettingsSource& source, QWidget* parent)
    : QDialog(parent), m_source(source), m_isNew(true)
{
    Build(true, false);
    for (const Kind& kind : source.GetKinds())
    {
        if (kind.m_canBeMade)
            m_kind->addItem(QString::fromLatin1(kind.m_name), kind.m_code);
    }
    connect(m_kind, &QComboBox::currentIndexChanged, this, &ValueEditor::ChooseKind);
    connect(m_name, &QLineEdit::textChanged, this, &ValueEditor::Check);
    ChooseKind();
}

void ValueEditor::Build(bool isNew, bool isReadOnly)
{
    setWindowTitle(isNew        ? XInLanguage(u"New value", u"Nouvelle valeur")
                   : isReadOnly ? XInLanguage(u"Value (read-only)", u"Valeur (lecture seule)")
                                : XInLanguage(u"Edit value", u"Modifier la valeur"));
    const QString valueName = XInLanguage(u"Value", u"Valeur");
    m_name = Named(new QLineEdit, XInLanguage(u"Name", u"Nom"));
    m_name->setReadOnly(!isNew);
    m_kind = Named(new QComboBox, XInLanguage(u"Kind", u"Type"));
    m_kind->setEnabled(isNew);
    m_line = Named(new QLineEdit, valueName);
    m_choice = Named(new QComboBox, valueName);
    m_choice->addItems({QStringLiteral("false"), QStringLiteral("true")});
    m_text = Named(new QPlainTextEdit, valueName);
    m_text->setTabChangesFocus(true);
    m_editors = new QWidget;
    auto* const editors = new QVBoxLayout(m_editors);
    editors->setContentsMargins(0, 0, 0, 0);
    for (QWidget* const editor : std::initializer_list<QWidget*>{m_line, m_choice, m_text})
        editors->addWidget(editor);
    m_line->setReadOnly(isReadOnly);
    m_choice->setEnabled(!isReadOnly);
    m_text->setReadOnly(isReadOnly);
    m_escapes =
        new QCheckBox(XInLanguage(u"&Special characters as \\uXXXX", u"Caractères &spéciaux sous la forme \\uXXXX"));
    m_range = new QLabel;
    m_range->setWordWrap(true);
    m_fault = Named(new QLabel, XInLanguage(u"Problem", u"Problème"));
    m_fault->setWordWrap(true);
    m_buttons =
        new QDialogButtonBox(isReadOnly ? QDialogButtonBox::Close : QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    auto* const layout = new QFormLayout(this);
    layout->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout->addRow(XInLanguage(u"&Name:", u"&Nom :"), m_name);
    layout->addRow(XInLanguage(u"&Kind:", u"&Type :"), m_kind);
    layout->addRow(XInLanguage(u"&Value:", u"&Valeur :"), m_editors);
    static_cast<QLabel*>(layout->labelForField(m_editors))->setBuddy(m_line);
    layout->addRow(QString(), m_range);
    layout->addRow(QString(), m_escapes);
    layout->addRow(QString(), m_fault);
    layout->addRow(m_buttons);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    const auto edited = [this] {
        m_isEdited = true;
        Check();
    };
    connect(m_line, &QLineEdit::textChanged, this, edited);
    connect(m_choice, &QComboBox::currentIndexChanged, this, edited);
    connect(m_text, &QPlainTextEdit::textChanged, this, edited);
    connect(m_escapes, &QCheckBox::toggled, this, &ValueEditor::ChooseEscapes);
    resize(sizeHint().expandedTo(QSize(fontMetrics().averageCharWidth() * 70, 0)));
}

void ValueEditor::Show(const EditText& text)
{
    const QSignalBlocker blockers[] = {QSignalBlocker(m_line), QSignalBlocker(m_choice), QSignalBlocker(m_text),
                                       QSignalBlocker(m_escapes)};
    m_shown = text;
    m_isEdited = false;
    QWidget* const editor = text.m_form == Form::kBool ? static_cast<QWidget*>(m_choice)
                            : IsLong(text.m_form)      ? static_cast<QWidget*>(m_text)
                                                       : m_line;
    for (QWidget* const other : std::initializer_list<QWidget*>{m_line, m_choice, m_text})
        other->setVisible(other == editor);
    m_editor = editor;
    m_editors->setFocusProxy(editor);
    static_cast<QLabel*>(static_cast<QFormLayout*>(layout())->labelForField(m_editors))->setBuddy(editor);
    m_text->setFont(text.m_form == Form::kBytes ? QFontDatabase::systemFont(QFontDatabase::FixedFont) : font());
    if (editor == m_choice)
        m_choice->setCurrentText(text.m_text);
    else if (editor == m_text)
        m_text->setPlainText(text.m_text);
    else
        m_line->setText(text.m_text);
    m_line->selectAll();
    m_escapes->setVisible(HasEscapes(text.m_form));
    m_escapes->setChecked(text.m_isEscaped);
    const Kind* const kind = FindKind(m_source, m_value.m_kind);
    m_range->setText(text.m_form == Form::kBytes
                         ? XInLanguage(u"pairs of hexadecimal digits", u"paires de chiffres hexadécimaux")
                         : RangeText(kind));
    m_range->setVisible(!m_range->text().isEmpty());
    layout()->activate();
    resize(width(), sizeHint().height());
    editor->setFocus();
}

EditText ValueEditor::Current() const
{
    EditText text = m_shown;
    if (m_editor == m_choice)
        text.m_text = m_choice->currentText();
    else
        text.m_text = m_editor == m_text ? m_text->toPlainText() : m_line->text();
    return text;
}

/// Takes what is typed over, or says why it cannot be.
void ValueEditor::Check()
{
    QString reason;
    std::optional<Bytes> bytes = m_value.m_data;
    if (m_isNew || m_isEdited)
        bytes = FromEditText(FindKind(m_source, m_value.m_kind), Current(), reason);
    if (bytes)
        m_value.m_data = *bytes;
    bool isGood = bytes.has_value();
    if (m_isNew)
    {
        const std::optional<std::wstring> id = m_source.ParseValueId(m_name->text());
        if (id)
            m_id = *id;
        else if (isGood)
            reason = XInLanguage(u"The name must be a number of 32 bits or four letters.",
                                 u"Le nom doit être un nombre de 32 bits ou quatre lettres.");
        isGood = isGood && id.has_value();
    }
    m_fault->setText(reason);
    if (QPushButton* const ok = m_buttons->button(QDialogButtonBox::Ok))
        ok->setEnabled(isGood);
}

void ValueEditor::ChooseKind()
{
    m_value.m_kind = m_kind->currentData().toUInt();
    const Kind* const kind = FindKind(m_source, m_value.m_kind);
    Show({kind->m_form, StartText(*kind), false});
    m_name->setFocus();
    Check();
}

// Only what can be shown as it is may be shown without escapes.
void ValueEditor::ChooseEscapes(bool isEscaped)
{
    QString reason;
    const bool wasEdited = m_isEdited || m_isNew;
    const Kind* const kind = FindKind(m_source, m_value.m_kind);
    const std::optional<Bytes> bytes = FromEditText(kind, Current(), reason);
    EditText text = bytes ? ToEditText(m_source, {m_value.m_kind, *bytes}) : m_shown;
    if (bytes && !text.m_isEscaped && isEscaped && text.m_form == m_shown.m_form)
        text = {text.m_form, text.m_text.replace(u'\\', QStringLiteral("\\\\")), true};
    if (bytes && text.m_form == m_shown.m_form)
        Show(text);
    else
    {
        const QSignalBlocker blocker(m_escapes);
        m_escapes->setChecked(m_shown.m_isEscaped);
    }
    m_isEdited = wasEdited;
    Check();
}
} // namespace tev::browser
