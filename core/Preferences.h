#pragma once
// Preferences: typed, named options that any part of the system creates at
// start-up, kept by the application's option manager and loaded and saved
// together as one archive file ("PreferencesDocument" section, version 1.0).
//
// Each option has a tag (its key in the file), a group and subgroup (for the
// host's dialog), a label, a default, a current value and, once saved or
// loaded with commit, a saved value. SetValue(text) parses and then calls
// Validate (ranged options clamp, enums fall back to the default); Set(value)
// and Load store without validating, so a loaded value may lie out of range.
// Text parsing is atoi/atof-like: bad text reads as 0.
//
// Load sends TezEventPreferencesChanging, resets every option to its default,
// reads the options the file holds (unknown tags are skipped) and sends
// TezEventPreferencesChanged. An unreadable or foreign file changes nothing
// and is logged at info level; a file that ends early throws the archive's
// end-of-file error with the options partly loaded.

#include "core/Archive.h"
#include "math/Vector.h"

#include <set>
#include <vector>

class TEZ_API TezPrefOption : public TezRefCounter
{
public:
    // The control a host makes for the option.
    enum GuiType { GuiNone = 0, GuiCustom = 1, GuiCheck = 2, GuiChoice = 3, GuiEdit = 4 };

    virtual void Save(TezRef<TezArchive> archive, bool commit) = 0;
    // False, without touching the archive, when the tag is not this option's.
    virtual bool Load(TezRef<TezArchive> archive, TezString const& tag, bool commit) = 0;
    virtual void Reset() = 0;
    virtual void Reload() = 0;
    virtual void Validate() = 0;
    virtual bool IsChanged() const = 0;
    virtual TezString Value() const = 0;
    virtual void SetValue(TezString const& text) = 0;
    virtual TezString Label() const { return m_label; }
    virtual TezString Group() const { return m_group; }
    virtual TezString Subgroup() const { return m_subgroup; }
    virtual TezString Tag() const { return m_tag; }
    // The int is not touched; choice lists append their choices.
    virtual GuiType Build(int& unused, std::vector<TezString>& choices) = 0;

protected:
    TezPrefOption(TezString const& label, TezString const& group, TezString const& subgroup, TezString const& tag);
    bool IsMyTag(TezString const& tag) const { return tag.CompareNoCase(m_tag) == 0; }
    // Adds a new option to the application's manager, when there is one.
    static void Register(TezRef<TezPrefOption> option);

    TezString m_label, m_group, m_subgroup, m_tag;
};

// The value-keeping part shared by the typed options.
template <class T>
class TEZ_API TezPrefOptionTyped : public TezPrefOption
{
public:
    T Get() const { return m_value; }
    void Set(T const& value) { m_value = value; }
    T GetDefault() const { return m_default; }

    void Save(TezRef<TezArchive> archive, bool commit) override;
    bool Load(TezRef<TezArchive> archive, TezString const& tag, bool commit) override;
    void Reset() override { m_value = m_default; }
    void Reload() override;
    bool IsChanged() const override;
    void Validate() override {}

protected:
    TezPrefOptionTyped(T const& value, TezString const& label, TezString const& group, TezString const& subgroup,
                       TezString const& tag);
    virtual void Write(TezArchive& archive) const = 0;
    virtual void Read(TezArchive& archive) = 0;

    T m_value;
    T m_saved;
    T m_default;
    bool m_hasSaved = false;
};

// Numbers with a range that Validate clamps to.
template <class T>
class TEZ_API TezPrefOptionRanged : public TezPrefOptionTyped<T>
{
public:
    void Validate() override;
    T GetMinimum() const { return m_minimum; }
    T GetMaximum() const { return m_maximum; }
    TezPrefOption::GuiType Build(int&, std::vector<TezString>&) override { return TezPrefOption::GuiEdit; }

protected:
    TezPrefOptionRanged(T const& value, T const& minimum, T const& maximum, TezString const& label,
                        TezString const& group, TezString const& subgroup, TezString const& tag);
    T m_minimum;
    T m_maximum;
};

#define TEZ_PREF_STRINGS TezString const &label, TezString const &group, TezString const &subgroup, TezString const &tag

#define TEZ_PREF_RANGED(Class, T)                                                                                      \
    class TEZ_API Class : public TezPrefOptionRanged<T>                                                                \
    {                                                                                                                  \
    public:                                                                                                            \
        static TezRef<Class> Create(T value, T minimum, T maximum, TEZ_PREF_STRINGS);                                  \
        TezString Value() const override;                                                                              \
        void SetValue(TezString const& text) override;                                                                 \
                                                                                                                       \
    protected:                                                                                                         \
        void Write(TezArchive& archive) const override;                                                                \
        void Read(TezArchive& archive) override;                                                                       \
                                                                                                                       \
    private:                                                                                                           \
        using TezPrefOptionRanged<T>::TezPrefOptionRanged;                                                             \
    };

// Radians inside, degrees in the text: "%.5f °" with the single byte 0xB0.
TEZ_PREF_RANGED(TezPrefOptionDegrees, float)
TEZ_PREF_RANGED(TezPrefOptionDouble, double)
TEZ_PREF_RANGED(TezPrefOptionFloat, float)
TEZ_PREF_RANGED(TezPrefOptionInt, int32_t)
TEZ_PREF_RANGED(TezPrefOptionSizet, uint64_t)
TEZ_PREF_RANGED(TezPrefOptionUnsigned, uint32_t)
#undef TEZ_PREF_RANGED

class TEZ_API TezPrefOptionBool : public TezPrefOptionTyped<bool>
{
public:
    static TezRef<TezPrefOptionBool> Create(bool value, TEZ_PREF_STRINGS);
    TezString Value() const override;
    void SetValue(TezString const& text) override;
    GuiType Build(int&, std::vector<TezString>&) override { return GuiCheck; }

protected:
    void Write(TezArchive& archive) const override;
    void Read(TezArchive& archive) override;

private:
    using TezPrefOptionTyped<bool>::TezPrefOptionTyped;
};

// RGBA in 0..1; the text is "r, g, b, a" in 0..255, truncated.
class TEZ_API TezPrefOptionColor : public TezPrefOptionTyped<TezVector4<float>>
{
public:
    static TezRef<TezPrefOptionColor> Create(TezVector4<float> const& value, TEZ_PREF_STRINGS);
    TezString Value() const override;
    void SetValue(TezString const& text) override;
    bool IsChanged() const override;
    GuiType Build(int&, std::vector<TezString>&) override { return GuiEdit; }

protected:
    void Write(TezArchive& archive) const override;
    void Read(TezArchive& archive) override;

private:
    using TezPrefOptionTyped<TezVector4<float>>::TezPrefOptionTyped;
};

class TEZ_API TezPrefOptionString : public TezPrefOptionTyped<TezString>
{
public:
    static TezRef<TezPrefOptionString> Create(TezString const& value, TEZ_PREF_STRINGS);
    void Set(TezString const& value) { SetValue(value); }
    TezString Value() const override { return m_value; }
    void SetValue(TezString const& text) override;
    GuiType Build(int&, std::vector<TezString>&) override { return GuiEdit; }

protected:
    using TezPrefOptionTyped<TezString>::TezPrefOptionTyped;
    void Write(TezArchive& archive) const override;
    void Read(TezArchive& archive) override;
};

class TEZ_API TezPrefOptionFilePath : public TezPrefOptionString
{
public:
    static TezRef<TezPrefOptionFilePath> Create(TezString const& value, TEZ_PREF_STRINGS);

private:
    using TezPrefOptionString::TezPrefOptionString;
};

// One text out of a fixed list of choices.
class TEZ_API TezPrefOptionEnum : public TezPrefOptionTyped<TezString>
{
public:
    static TezRef<TezPrefOptionEnum> Create(TezString const& value, std::vector<TezString> const& choices,
                                            TEZ_PREF_STRINGS);
    // Index of the current text among the choices (any case), 0 if absent.
    int Get() const;
    // Takes the choice of that index; out of range does nothing.
    void Set(int index);
    TezString Value() const override { return m_value; }
    // A text matching a choice in any case takes the choice's spelling;
    // any other text changes nothing.
    void SetValue(TezString const& text) override;
    void Validate() override;
    GuiType Build(int&, std::vector<TezString>& choices) override;
    std::vector<TezString> const& GetChoices() const { return m_choices; }

protected:
    void Write(TezArchive& archive) const override;
    void Read(TezArchive& archive) override;

private:
    TezPrefOptionEnum(TezString const& value, std::vector<TezString> const& choices, TEZ_PREF_STRINGS);
    int IndexOf(TezString const& text) const;
    std::vector<TezString> m_choices;
    TezString m_unused;
};

#undef TEZ_PREF_STRINGS

TEZ_DECLARE_REF_FUNCTIONS(TezPrefOptionManager)

class TEZ_API TezPrefOptionManager : public TezRefCounter
{
public:
    static TezRef<TezPrefOptionManager> Create();
    // The application's manager; null without an application.
    static TezRef<TezPrefOptionManager> GetAppPrefOptionManager();
    ~TezPrefOptionManager() override = default;

    void AddOption(TezRef<TezPrefOption> option);
    std::set<TezString> GetGroups() const;
    std::set<TezString> GetSubgroups(TezString const& group) const;
    std::vector<TezRef<TezPrefOption>> GetOptions(TezString const& group, TezString const& subgroup) const;
    std::vector<TezRef<TezPrefOption>> const& GetAllOptions() const { return m_options; }
    // The first option of that tag (any case), or null.
    TezRef<TezPrefOption> FindOption(TezString const& tag) const;

    void Load(TezString const& path, bool commit);
    void Save(TezString const& path, bool commit);
    void ResetAll();
    void ReloadAll();

    static TezString const m_prefDocName;

private:
    TezPrefOptionManager() = default;
    std::vector<TezRef<TezPrefOption>> m_options;
};
