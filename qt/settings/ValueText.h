#pragma once

#include "qt/settings/SettingsSource.h"

namespace tev::browser
{
/// The kind of that code; null where the source has none.
const Kind* FindKind(const SettingsSource& source, unsigned code);
/// As the tool `tev` names it: its name, or letters of an unknown one.
QString KindName(const SettingsSource& source, unsigned code);

/// In one line, for lists: long ones are cut.
QString ValueLine(const SettingsSource& source, const Value& value);

/// What a person edits, of which the same bytes come again while nothing is changed. What has not the form of its kind is
/// edited as bytes.
struct EditText
{
    Form m_form = Form::kBytes;
    QString m_text;
    bool m_isEscaped = false; ///< controls and the like are \uXXXX, a backslash is \\.
};
EditText ToEditText(const SettingsSource& source, const Value& value);

/// The bytes of an edited text; none, with the reason, where it has none.
std::optional<Bytes> FromEditText(const Kind* kind, const EditText& text, QString& reason);

/// A text with \uXXXX in the place of what an editor would change or not show; the same text where there is none.
QString Escaped(const QString& text);
bool NeedsEscapes(const QString& text);
/// What values of the kind may be; empty where there is no limit.
QString RangeText(const Kind* kind);
} // namespace tev::browser
