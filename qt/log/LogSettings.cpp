#include "qt/log/LogSettings.h"

#include "qt/toolkit/QtText.h"
#include "services/Paths.h"
#include "settings/CDataKey.h"
#include "settings/PreferenceFile.h"

#include <algorithm>

namespace
{
constexpr unsigned kStoreKey = 0x4C4F4756; // "LOGV"
constexpr unsigned kStoreVersion = 1;

constexpr CDataKey<tev::ColorTheme> kTheme{1, tev::ColorTheme::System};
constexpr CDataKey<bool> kFollowing{2, false};
constexpr CDataKey<bool> kLineNumbers{3, true};
constexpr CDataKey<int> kFontSize{4, 0};
constexpr CDataKey<std::vector<CXTString<wchar_t>>> kRecent{5};
constexpr unsigned kGeometry = 6;
constexpr CDataKey<bool> kHasRules{7, false};
// The rules are one list for each of their parts.
constexpr CDataKey<std::vector<CXTString<wchar_t>>> kRuleTexts{8};
constexpr unsigned kRuleParts = 9;

constexpr int kLargestFont = 96;

struct RuleParts
{
    int m_kind;
    int m_isCaseSensitive;
    int m_color;
    unsigned m_custom;
};

std::vector<ColorRule> LoadRules(const CCustomData& store)
{
    std::vector<ColorRule> rules;
    const std::vector<CXTString<wchar_t>> texts = store.Get(kRuleTexts);
    std::vector<RuleParts> parts(texts.size());
    const auto size = static_cast<unsigned>(parts.size() * sizeof(RuleParts));
    if (!store.Get(kHasRules) || (size != 0 && !store.GetBinary(kRuleParts, parts.data(), size)))
        return LogColors::DefaultRules();
    for (std::size_t i = 0; i < texts.size(); ++i)
    {
        const auto kind =
            static_cast<PatternKind>(std::clamp(parts[i].m_kind, 0, static_cast<int>(PatternKind::Prefix)));
        const auto color = static_cast<RuleColor>(std::clamp(parts[i].m_color, 0, static_cast<int>(RuleColor::Custom)));
        rules.push_back({{kind, XToQString(texts[i]), parts[i].m_isCaseSensitive != 0}, color, parts[i].m_custom});
    }
    return rules;
}

void SaveRules(CCustomData& store, const std::vector<ColorRule>& rules)
{
    std::vector<CXTString<wchar_t>> texts;
    std::vector<RuleParts> parts;
    for (const ColorRule& rule : rules)
    {
        texts.push_back(XFromQString(rule.m_pattern.m_text));
        parts.push_back({static_cast<int>(rule.m_pattern.m_kind), rule.m_pattern.m_isCaseSensitive ? 1 : 0,
                         static_cast<int>(rule.m_color), rule.m_custom});
    }
    store.Set(kHasRules, true);
    store.Set(kRuleTexts, texts);
    store.SetBinary(kRuleParts, parts.data(), static_cast<unsigned>(parts.size() * sizeof(RuleParts)));
}
} // namespace

CXTString<wchar_t> LogSettings::GetPath()
{
    CPathString path = GetUserApplicationDataPath();
    path /= L"settings.pref";
    return path;
}

void LogSettings::AddRecent(const CXTString<wchar_t>& path)
{
    m_recent.erase(std::remove_if(m_recent.begin(), m_recent.end(), [&](const auto& other) { return other == path; }),
                   m_recent.end());
    m_recent.insert(m_recent.begin(), path);
    m_recent.resize(std::min(m_recent.size(), kRecentFiles));
}

LogSettings LogSettings::Load(const CXTString<wchar_t>& path)
{
    LogSettings settings;
    CCustomData store;
    if (!store.LoadFromPrefs(path, kStoreKey, kStoreVersion, false))
        return settings;
    settings.m_rules = LoadRules(store);
    settings.m_theme = store.Get(kTheme);
    settings.m_isFollowing = store.Get(kFollowing);
    settings.m_hasLineNumbers = store.Get(kLineNumbers);
    settings.m_fontSize = std::clamp(store.Get(kFontSize), 0, kLargestFont);
    settings.m_recent = store.Get(kRecent);
    settings.m_recent.resize(std::min(settings.m_recent.size(), kRecentFiles));
    unsigned size = 0;
    if (const void* const bytes = store.GetCustomPtr(kGeometry, size))
        settings.m_geometry = QByteArray(static_cast<const char*>(bytes), static_cast<qsizetype>(size));
    return settings;
}

bool LogSettings::Save(const CXTString<wchar_t>& path, const LogSettings& before) const
{
    return XUpdatePreferences(path, kStoreKey, kStoreVersion, [&](CCustomData& store) {
        const auto save = [&store](const auto& key, const auto& value, const auto& old) {
            if (value != old)
                store.Set(key, value);
        };
        LogSettings merged;
        merged.m_recent = store.Get(kRecent);
        for (auto recent = m_recent.rbegin(); recent != m_recent.rend(); ++recent)
            merged.AddRecent(*recent);
        if (m_recent != before.m_recent)
            store.Set(kRecent, merged.m_recent);
        if (m_rules != before.m_rules)
            SaveRules(store, m_rules);
        save(kTheme, m_theme, before.m_theme);
        save(kFollowing, m_isFollowing, before.m_isFollowing);
        save(kLineNumbers, m_hasLineNumbers, before.m_hasLineNumbers);
        save(kFontSize, m_fontSize, before.m_fontSize);
        if (m_geometry != before.m_geometry)
            store.SetBinary(kGeometry, m_geometry.constData(), static_cast<unsigned>(m_geometry.size()));
    });
}
