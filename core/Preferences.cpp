#include "core/Preferences.h"

#include "core/AppService.h"
#include "core/Constants.h"
#include "core/Events.h"
#include "core/Logger.h"

#include <cstdlib>

TEZ_DEFINE_REF_FUNCTIONS(TezPrefOptionManager)

TezString const TezPrefOptionManager::m_prefDocName("PreferencesDocument");

namespace {

TezString Formatted(char const* format, double value)
{
    TezString text;
    text.Format(format, value);
    return text;
}

// atoi and atof read a null text as empty.
int ToInt(TezString const& text) { return std::atoi(text.c_str()); }
double ToDouble(TezString const& text) { return std::atof(text.c_str()); }

} // namespace

// ---- TezPrefOption ----

TezPrefOption::TezPrefOption(TezString const& label, TezString const& group, TezString const& subgroup,
                             TezString const& tag)
    : m_label(label), m_group(group), m_subgroup(subgroup), m_tag(tag)
{
}

void TezPrefOption::Register(TezRef<TezPrefOption> option)
{
    TezRef<TezPrefOptionManager> manager = TezPrefOptionManager::GetAppPrefOptionManager();
    if (manager)
        manager->AddOption(option);
}

// ---- shared value handling ----

template <class T>
TezPrefOptionTyped<T>::TezPrefOptionTyped(T const& value, TezString const& label, TezString const& group,
                                          TezString const& subgroup, TezString const& tag)
    : TezPrefOption(label, group, subgroup, tag), m_value(value), m_saved(value), m_default(value)
{
}

template <class T>
void TezPrefOptionTyped<T>::Save(TezRef<TezArchive> archive, bool commit)
{
    Write(*archive);
    if (commit) {
        m_saved = m_value;
        m_hasSaved = true;
    }
}

template <class T>
bool TezPrefOptionTyped<T>::Load(TezRef<TezArchive> archive, TezString const& tag, bool commit)
{
    if (!IsMyTag(tag))
        return false;
    Read(*archive);
    if (commit) {
        m_saved = m_value;
        m_hasSaved = true;
    }
    return true;
}

template <class T>
void TezPrefOptionTyped<T>::Reload()
{
    if (m_hasSaved)
        m_value = m_saved;
}

template <class T>
bool TezPrefOptionTyped<T>::IsChanged() const
{
    return !m_hasSaved || !(m_value == m_saved);
}

template <class T>
TezPrefOptionRanged<T>::TezPrefOptionRanged(T const& value, T const& minimum, T const& maximum, TezString const& label,
                                            TezString const& group, TezString const& subgroup, TezString const& tag)
    : TezPrefOptionTyped<T>(value, label, group, subgroup, tag), m_minimum(minimum), m_maximum(maximum)
{
}

template <class T>
void TezPrefOptionRanged<T>::Validate()
{
    if (this->m_value < m_minimum)
        this->m_value = m_minimum;
    if (this->m_value > m_maximum)
        this->m_value = m_maximum;
}

template class TezPrefOptionTyped<bool>;
template class TezPrefOptionTyped<int32_t>;
template class TezPrefOptionTyped<uint32_t>;
template class TezPrefOptionTyped<uint64_t>;
template class TezPrefOptionTyped<float>;
template class TezPrefOptionTyped<double>;
template class TezPrefOptionTyped<TezString>;
template class TezPrefOptionTyped<TezVector4<float>>;
template class TezPrefOptionRanged<int32_t>;
template class TezPrefOptionRanged<uint32_t>;
template class TezPrefOptionRanged<uint64_t>;
template class TezPrefOptionRanged<float>;
template class TezPrefOptionRanged<double>;

// ---- the ranged numbers ----

#define TEZ_PREF_RANGED_CREATE(Class, T)                                                                               \
    TezRef<Class> Class::Create(T value, T minimum, T maximum, TezString const& label, TezString const& group,         \
                                TezString const& subgroup, TezString const& tag)                                       \
    {                                                                                                                  \
        TezRef<Class> option(new Class(value, minimum, maximum, label, group, subgroup, tag));                         \
        Register(option);                                                                                              \
        return option;                                                                                                 \
    }

TEZ_PREF_RANGED_CREATE(TezPrefOptionDegrees, float)
TEZ_PREF_RANGED_CREATE(TezPrefOptionDouble, double)
TEZ_PREF_RANGED_CREATE(TezPrefOptionFloat, float)
TEZ_PREF_RANGED_CREATE(TezPrefOptionInt, int32_t)
TEZ_PREF_RANGED_CREATE(TezPrefOptionSizet, uint64_t)
TEZ_PREF_RANGED_CREATE(TezPrefOptionUnsigned, uint32_t)
#undef TEZ_PREF_RANGED_CREATE

TezString TezPrefOptionDegrees::Value() const
{
    TezString text = Formatted("%.5f", m_value * 180.0f / TezPif);
    text.Append(' ');
    text.Append('\xB0');
    return text;
}

void TezPrefOptionDegrees::SetValue(TezString const& text)
{
    m_value = static_cast<float>(ToDouble(text)) * TezPif / 180.0f;
    Validate();
}

void TezPrefOptionDegrees::Write(TezArchive& archive) const { archive.WriteFloat(m_tag, m_value); }
void TezPrefOptionDegrees::Read(TezArchive& archive) { m_value = archive.ReadFloat(); }

TezString TezPrefOptionDouble::Value() const { return Formatted("%.6f", m_value); }
void TezPrefOptionDouble::SetValue(TezString const& text)
{
    m_value = ToDouble(text);
    Validate();
}
void TezPrefOptionDouble::Write(TezArchive& archive) const { archive.WriteDouble(m_tag, m_value); }
void TezPrefOptionDouble::Read(TezArchive& archive) { m_value = archive.ReadDouble(); }

TezString TezPrefOptionFloat::Value() const { return Formatted("%.5f", m_value); }
void TezPrefOptionFloat::SetValue(TezString const& text)
{
    m_value = static_cast<float>(ToDouble(text));
    Validate();
}
void TezPrefOptionFloat::Write(TezArchive& archive) const { archive.WriteFloat(m_tag, m_value); }
void TezPrefOptionFloat::Read(TezArchive& archive) { m_value = archive.ReadFloat(); }

TezString TezPrefOptionInt::Value() const
{
    TezString text;
    text.Format("%d", m_value);
    return text;
}
void TezPrefOptionInt::SetValue(TezString const& text)
{
    m_value = ToInt(text);
    Validate();
}
void TezPrefOptionInt::Write(TezArchive& archive) const { archive.WriteInt(m_tag, m_value); }
void TezPrefOptionInt::Read(TezArchive& archive) { m_value = archive.ReadInt(); }

TezString TezPrefOptionSizet::Value() const
{
    TezString text;
    text.Format("%ld", static_cast<long>(m_value));
    return text;
}
void TezPrefOptionSizet::SetValue(TezString const& text)
{
    m_value = static_cast<uint64_t>(static_cast<int64_t>(ToInt(text)));
    Validate();
}
void TezPrefOptionSizet::Write(TezArchive& archive) const { archive.WriteSizet(m_tag, m_value); }
void TezPrefOptionSizet::Read(TezArchive& archive) { m_value = archive.ReadSizet(); }

TezString TezPrefOptionUnsigned::Value() const
{
    TezString text;
    text.Format("%u", m_value);
    return text;
}
void TezPrefOptionUnsigned::SetValue(TezString const& text)
{
    m_value = static_cast<uint32_t>(ToInt(text));
    Validate();
}
void TezPrefOptionUnsigned::Write(TezArchive& archive) const { archive.WriteUnsigned(m_tag, m_value); }
void TezPrefOptionUnsigned::Read(TezArchive& archive) { m_value = archive.ReadUnsigned(); }

// ---- bool ----

TezRef<TezPrefOptionBool> TezPrefOptionBool::Create(bool value, TezString const& label, TezString const& group,
                                                    TezString const& subgroup, TezString const& tag)
{
    TezRef<TezPrefOptionBool> option(new TezPrefOptionBool(value, label, group, subgroup, tag));
    Register(option);
    return option;
}

TezString TezPrefOptionBool::Value() const { return TezString(m_value ? "true" : "false"); }

void TezPrefOptionBool::SetValue(TezString const& text)
{
    char first = text.c_str()[0];
    m_value = first == 't' || first == 'T';
    Validate();
}

void TezPrefOptionBool::Write(TezArchive& archive) const { archive.WriteBool(m_tag, m_value); }
void TezPrefOptionBool::Read(TezArchive& archive) { m_value = archive.ReadBool(); }

// ---- colour ----

TezRef<TezPrefOptionColor> TezPrefOptionColor::Create(TezVector4<float> const& value, TezString const& label,
                                                      TezString const& group, TezString const& subgroup,
                                                      TezString const& tag)
{
    TezRef<TezPrefOptionColor> option(new TezPrefOptionColor(value, label, group, subgroup, tag));
    Register(option);
    return option;
}

TezString TezPrefOptionColor::Value() const
{
    TezString text;
    text.Format("%d, %d, %d, %d", static_cast<int>(m_value.x * 255.0f), static_cast<int>(m_value.y * 255.0f),
                static_cast<int>(m_value.z * 255.0f), static_cast<int>(m_value.w * 255.0f));
    return text;
}

void TezPrefOptionColor::SetValue(TezString const& text)
{
    float* elements[4] = {&m_value.x, &m_value.y, &m_value.z, &m_value.w};
    std::vector<TezString> parts = text.Split(TezString(",.\t"));
    for (size_t i = 0; i < parts.size() && i < 4; ++i)
        *elements[i] = static_cast<float>(ToInt(parts[i]) / 255.0);
    Validate();
}

bool TezPrefOptionColor::IsChanged() const
{
    return !m_hasSaved || m_value.x != m_saved.x || m_value.y != m_saved.y || m_value.z != m_saved.z ||
           m_value.w != m_saved.w;
}

void TezPrefOptionColor::Write(TezArchive& archive) const
{
    archive.WriteFloat(m_tag, m_value.x);
    archive.WriteFloat(m_tag, m_value.y);
    archive.WriteFloat(m_tag, m_value.z);
    archive.WriteFloat(m_tag, m_value.w);
}

void TezPrefOptionColor::Read(TezArchive& archive)
{
    m_value.x = archive.ReadFloat();
    m_value.y = archive.ReadFloat();
    m_value.z = archive.ReadFloat();
    m_value.w = archive.ReadFloat();
}

// ---- strings ----

TezRef<TezPrefOptionString> TezPrefOptionString::Create(TezString const& value, TezString const& label,
                                                        TezString const& group, TezString const& subgroup,
                                                        TezString const& tag)
{
    TezRef<TezPrefOptionString> option(new TezPrefOptionString(value, label, group, subgroup, tag));
    Register(option);
    return option;
}

void TezPrefOptionString::SetValue(TezString const& text)
{
    m_value = text;
    Validate();
}

void TezPrefOptionString::Write(TezArchive& archive) const { archive.WriteString(m_tag, m_value); }
void TezPrefOptionString::Read(TezArchive& archive) { m_value = archive.ReadString(); }

TezRef<TezPrefOptionFilePath> TezPrefOptionFilePath::Create(TezString const& value, TezString const& label,
                                                            TezString const& group, TezString const& subgroup,
                                                            TezString const& tag)
{
    TezRef<TezPrefOptionFilePath> option(new TezPrefOptionFilePath(value, label, group, subgroup, tag));
    Register(option);
    return option;
}

// ---- enum ----

TezPrefOptionEnum::TezPrefOptionEnum(TezString const& value, std::vector<TezString> const& choices,
                                     TezString const& label, TezString const& group, TezString const& subgroup,
                                     TezString const& tag)
    : TezPrefOptionTyped<TezString>(value, label, group, subgroup, tag), m_choices(choices)
{
}

TezRef<TezPrefOptionEnum> TezPrefOptionEnum::Create(TezString const& value, std::vector<TezString> const& choices,
                                                    TezString const& label, TezString const& group,
                                                    TezString const& subgroup, TezString const& tag)
{
    TezRef<TezPrefOptionEnum> option(new TezPrefOptionEnum(value, choices, label, group, subgroup, tag));
    Register(option);
    return option;
}

int TezPrefOptionEnum::IndexOf(TezString const& text) const
{
    for (size_t i = 0; i < m_choices.size(); ++i)
        if (m_choices[i].CompareNoCase(text) == 0)
            return static_cast<int>(i);
    return -1;
}

int TezPrefOptionEnum::Get() const
{
    int index = IndexOf(m_value);
    return index < 0 ? 0 : index;
}

void TezPrefOptionEnum::Set(int index)
{
    if (index >= 0 && index < static_cast<int>(m_choices.size()))
        SetValue(m_choices[static_cast<size_t>(index)]);
}

void TezPrefOptionEnum::SetValue(TezString const& text)
{
    int index = IndexOf(text);
    if (index >= 0)
        m_value = m_choices[static_cast<size_t>(index)];
    Validate();
}

void TezPrefOptionEnum::Validate()
{
    if (IndexOf(m_value) < 0)
        m_value = m_default;
}

TezPrefOption::GuiType TezPrefOptionEnum::Build(int&, std::vector<TezString>& choices)
{
    choices.insert(choices.end(), m_choices.begin(), m_choices.end());
    return GuiChoice;
}

void TezPrefOptionEnum::Write(TezArchive& archive) const { archive.WriteString(m_tag, m_value); }
void TezPrefOptionEnum::Read(TezArchive& archive) { m_value = archive.ReadString(); }

// ---- the manager ----

TezRef<TezPrefOptionManager> TezPrefOptionManager::Create()
{
    return TezRef<TezPrefOptionManager>(new TezPrefOptionManager());
}

TezRef<TezPrefOptionManager> TezPrefOptionManager::GetAppPrefOptionManager()
{
    return TezAppService<TezPrefOptionManager>::Get();
}

void TezPrefOptionManager::AddOption(TezRef<TezPrefOption> option)
{
    if (option)
        m_options.push_back(option);
}

std::set<TezString> TezPrefOptionManager::GetGroups() const
{
    std::set<TezString> groups;
    for (auto const& option : m_options)
        groups.insert(option->Group());
    return groups;
}

std::set<TezString> TezPrefOptionManager::GetSubgroups(TezString const& group) const
{
    std::set<TezString> subgroups;
    for (auto const& option : m_options)
        if (option->Group() == group)
            subgroups.insert(option->Subgroup());
    return subgroups;
}

std::vector<TezRef<TezPrefOption>> TezPrefOptionManager::GetOptions(TezString const& group,
                                                                    TezString const& subgroup) const
{
    std::vector<TezRef<TezPrefOption>> found;
    for (auto const& option : m_options)
        if (option->Group() == group && option->Subgroup() == subgroup)
            found.push_back(option);
    return found;
}

TezRef<TezPrefOption> TezPrefOptionManager::FindOption(TezString const& tag) const
{
    for (auto const& option : m_options)
        if (option->Tag().CompareNoCase(tag) == 0)
            return option;
    return nullptr;
}

void TezPrefOptionManager::ResetAll()
{
    for (auto const& option : m_options)
        option->Reset();
}

void TezPrefOptionManager::ReloadAll()
{
    for (auto const& option : m_options)
        option->Reload();
}

void TezPrefOptionManager::Save(TezString const& path, bool commit)
{
    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
    if (!archive) {
        TezLogger::error("Could not write preferences file: %s\n", path.c_str());
        return;
    }
    archive->WriteStartSection(m_prefDocName);
    archive->WriteInt("majorVersion", 1);
    archive->WriteInt("minorVersion", 0);
    for (auto const& option : m_options)
        option->Save(archive, commit);
    archive->WriteEndSection();
}

void TezPrefOptionManager::Load(TezString const& path, bool commit)
{
    TezRef<TezEventManager> events = TezEventManager::GetAppEventManager();
    if (events)
        events->Report(TezEventPreferencesChanging::Create());

    TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Read);
    if (!archive) {
        TezLogger::info("Could not open preferences file: %s\n", path.c_str());
        return;
    }
    TezString name;
    if (archive->ReadTag().CompareNoCase(TezString("sectionStart")) == 0)
        name = archive->ReadStartSection(0);
    if (name.Length() == 0 || name.CompareNoCase(m_prefDocName) != 0) {
        TezLogger::info("File is not a preferences file: %s\n", path.c_str());
        return;
    }

    ResetAll();
    for (;;) {
        TezString tag = archive->ReadTag();
        if (tag.CompareNoCase(TezString("majorVersion")) == 0 || tag.CompareNoCase(TezString("minorVersion")) == 0) {
            archive->ReadInt();
        } else if (tag.CompareNoCase(TezString("sectionEnd")) == 0) {
            archive->ReadEndSection();
            break;
        } else {
            bool taken = false;
            for (auto const& option : m_options)
                if ((taken = option->Load(archive, tag, commit)))
                    break;
            if (!taken)
                archive->SkipUnknownTag();
        }
    }

    if (events)
        events->Report(TezEventPreferencesChanged::Create());
}
