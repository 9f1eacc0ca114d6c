#include "core/Preferences.h"
#include "TestApplication.h"
#include "core/Application.h"
#include "core/Events.h"
#include "math/Constants.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

class Recorder : public TezEventHandler
{
public:
    static TezRef<Recorder> Create() { return TezRef<Recorder>(new Recorder()); }
    void Handle(TezRef<TezEvent> event) override { names.push_back(event->TypeName().c_str()); }
    std::vector<std::string> names;
};

class Preferences : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char name[] = "/tmp/tez_prefs_XXXXXX";
        close(mkstemp(name));
        path = name;
        events = Recorder::Create();
        app.GetEventManager()->Subscribe(TezEventPreferencesChanging::Create(), events);
        app.GetEventManager()->Subscribe(TezEventPreferencesChanged::Create(), events);
    }
    void TearDown() override { std::remove(path.c_str()); }
    TezRef<TezPrefOptionManager> manager() { return app.GetPrefOptionManager(); }

    TestApplication app;
    std::string path;
    TezRef<Recorder> events;
};

TezString S(char const* text) { return TezString(text); }

} // namespace

TEST_F(Preferences, OptionsRegisterWithTheApplicationAndGroup)
{
    auto undo = TezPrefOptionInt::Create(5, -1, 64, S("Max undo commands (-1 - unlimited)"), S("Options"), S("General"),
                                         S("MaxUndoCommands"));
    auto sobel = TezPrefOptionEnum::Create(S("3 x 3"), {S("Off"), S("3 x 3"), S("5 x 5")}, S("Sobel Filter Size"),
                                           S("Options"), S("Render Options"), S("SobelFilterSize"));
    auto other = TezPrefOptionBool::Create(true, S("Diagonals"), S("View"), S("Boxes"), S("ShowDiagonals"));
    ASSERT_EQ(3u, manager()->GetAllOptions().size());
    EXPECT_EQ((std::set<TezString>{S("Options"), S("View")}), manager()->GetGroups());
    EXPECT_EQ((std::set<TezString>{S("General"), S("Render Options")}), manager()->GetSubgroups(S("Options")));
    EXPECT_TRUE(manager()->GetSubgroups(S("options")).empty()); // groups compare exactly
    auto general = manager()->GetOptions(S("Options"), S("General"));
    ASSERT_EQ(1u, general.size());
    EXPECT_EQ(undo, general[0]);
    EXPECT_EQ(sobel, manager()->FindOption(S("sobelfiltersize")));

    int untouched = 42;
    std::vector<TezString> choices;
    EXPECT_EQ(TezPrefOption::GuiChoice, sobel->Build(untouched, choices));
    EXPECT_EQ(3u, choices.size());
    EXPECT_EQ(TezPrefOption::GuiCheck, other->Build(untouched, choices));
    EXPECT_EQ(TezPrefOption::GuiEdit, undo->Build(untouched, choices));
    EXPECT_EQ(42, untouched);
}

TEST_F(Preferences, TextFormsParseAndValidate)
{
    auto i = TezPrefOptionInt::Create(5, -1, 64, S("l"), S("g"), S("s"), S("i"));
    i->SetValue(S("100"));
    EXPECT_EQ(64, i->Get());
    i->SetValue(S("junk"));
    EXPECT_EQ(0, i->Get());
    i->Set(1000); // direct: no clamping
    EXPECT_EQ(1000, i->Get());
    EXPECT_STREQ("1000", i->Value());

    auto d = TezPrefOptionDegrees::Create(0.0f, 0.0f, 2.0f * TezPif, S("l"), S("g"), S("s"), S("deg"));
    d->SetValue(S("180"));
    EXPECT_FLOAT_EQ(TezPif, d->Get());
    EXPECT_STREQ("180.00000 \xB0", d->Value());

    auto c = TezPrefOptionColor::Create(TezVector4<float>(0, 0, 0, 0), S("l"), S("g"), S("s"), S("c"));
    c->SetValue(S("255, 0, 128, 255"));
    EXPECT_FLOAT_EQ(1.0f, c->Get().x);
    EXPECT_FLOAT_EQ(0.0f, c->Get().y);
    EXPECT_NEAR(0.50196f, c->Get().z, 1e-5);
    EXPECT_STREQ("255, 0, 128, 255", c->Value());
    c->SetValue(S("10, 20, 30, 40"));
    EXPECT_STREQ("10, 20, 30, 40", c->Value());
    c->SetValue(S("1.5")); // the period separates too: 1 and 5
    EXPECT_STREQ("1, 5, 30, 40", c->Value());

    auto b = TezPrefOptionBool::Create(false, S("l"), S("g"), S("s"), S("b"));
    b->SetValue(S("True"));
    EXPECT_TRUE(b->Get());
    EXPECT_STREQ("true", b->Value());
    b->SetValue(S(""));
    EXPECT_FALSE(b->Get());

    auto dbl = TezPrefOptionDouble::Create(0.5, 0.0, 1.0, S("l"), S("g"), S("s"), S("d"));
    EXPECT_STREQ("0.500000", dbl->Value());
    auto f = TezPrefOptionFloat::Create(0.25f, 0.0f, 1.0f, S("l"), S("g"), S("s"), S("f"));
    EXPECT_STREQ("0.25000", f->Value());
    auto u = TezPrefOptionUnsigned::Create(3, 1, 10, S("l"), S("g"), S("s"), S("u"));
    u->SetValue(S("0"));
    EXPECT_EQ(1u, u->Get());
    auto z = TezPrefOptionSizet::Create(7, 0, 1ull << 40, S("l"), S("g"), S("s"), S("z"));
    EXPECT_STREQ("7", z->Value());
}

TEST_F(Preferences, EnumChoices)
{
    auto e = TezPrefOptionEnum::Create(S("3 x 3"), {S("Off"), S("3 x 3"), S("5 x 5")}, S("l"), S("g"), S("s"), S("e"));
    EXPECT_EQ(1, e->Get());
    e->SetValue(S("OFF"));
    EXPECT_STREQ("Off", e->Value()); // the choice's own spelling
    e->SetValue(S("9 x 9"));
    EXPECT_STREQ("Off", e->Value()); // unknown text changes nothing
    e->Set(-1);
    e->Set(3);
    EXPECT_STREQ("Off", e->Value());
    e->Set(2);
    EXPECT_STREQ("5 x 5", e->Value());
    EXPECT_EQ(2, e->Get());
}

TEST_F(Preferences, SavedValuesAndChanges)
{
    auto i = TezPrefOptionInt::Create(5, -1, 64, S("l"), S("g"), S("s"), S("MaxUndoCommands"));
    EXPECT_TRUE(i->IsChanged()); // nothing saved yet
    i->Set(9);
    i->Reload(); // nothing saved: no effect
    EXPECT_EQ(9, i->Get());
    manager()->Save(TezString(path.c_str()), true);
    EXPECT_FALSE(i->IsChanged());
    i->Set(3);
    EXPECT_TRUE(i->IsChanged());
    i->Reload();
    EXPECT_EQ(9, i->Get());
    i->Reset();
    EXPECT_EQ(5, i->Get());
}

TEST_F(Preferences, FileRoundTripWithEvents)
{
    auto i = TezPrefOptionInt::Create(5, -1, 64, S("l"), S("Options"), S("General"), S("MaxUndoCommands"));
    auto c =
        TezPrefOptionColor::Create(TezVector4<float>(0.1f, 0.2f, 0.3f, 1.0f), S("l"), S("g"), S("s"), S("Background"));
    auto e = TezPrefOptionEnum::Create(S("Off"), {S("Off"), S("On")}, S("l"), S("g"), S("s"), S("Mode"));
    auto str = TezPrefOptionFilePath::Create(S("/tmp/x"), S("l"), S("g"), S("s"), S("LastFolder"));
    i->Set(100); // outside the range: saved and loaded as it is
    c->SetValue(S("1, 2, 3, 4"));
    e->Set(1);
    str->Set(S("/data/slices"));
    manager()->Save(TezString(path.c_str()), false);
    EXPECT_TRUE(i->IsChanged());

    manager()->ResetAll();
    EXPECT_EQ(5, i->Get());
    manager()->Load(TezString(path.c_str()), true);
    EXPECT_EQ(100, i->Get());
    EXPECT_STREQ("1, 2, 3, 4", c->Value());
    EXPECT_STREQ("On", e->Value());
    EXPECT_STREQ("/data/slices", str->Value());
    EXPECT_FALSE(i->IsChanged());
    EXPECT_EQ((std::vector<std::string>{"Preferences Changing Event", "Preferences Changed Event"}), events->names);
    i->Validate();
    EXPECT_EQ(64, i->Get());
}

TEST_F(Preferences, UnknownTagsAreSkippedAndMissingOptionsTakeDefaults)
{
    {
        TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
        archive->WriteStartSection("preferencesdocument");
        archive->WriteInt("majorVersion", 1);
        archive->WriteInt("minorVersion", 0);
        archive->WriteDouble("RemovedLongAgo", 1.0);
        archive->WriteString("AnotherUnknown", "text");
        archive->WriteInt("maxundocommands", 12);
        archive->WriteEndSection();
    }
    auto i = TezPrefOptionInt::Create(5, -1, 64, S("l"), S("g"), S("s"), S("MaxUndoCommands"));
    auto b = TezPrefOptionBool::Create(true, S("l"), S("g"), S("s"), S("Absent"));
    b->Set(false);
    manager()->Load(TezString(path.c_str()), false);
    EXPECT_EQ(12, i->Get());
    EXPECT_TRUE(b->Get());       // reset to its default
    EXPECT_TRUE(i->IsChanged()); // loaded without commit
}

TEST_F(Preferences, UnreadableForeignAndTruncatedFiles)
{
    auto i = TezPrefOptionInt::Create(5, -1, 64, S("l"), S("g"), S("s"), S("MaxUndoCommands"));
    i->Set(7);
    manager()->Load(TezString("/no/such/prefs.file"), true);
    EXPECT_EQ(7, i->Get());
    EXPECT_EQ((std::vector<std::string>{"Preferences Changing Event"}), events->names);

    {
        TezRef<TezArchive> archive = TezArchive::Open(path.c_str(), TezArchive::Write);
        archive->WriteStartSection("SomethingElse");
        archive->WriteEndSection();
    }
    manager()->Load(TezString(path.c_str()), true);
    EXPECT_EQ(7, i->Get());

    manager()->Save(TezString(path.c_str()), false);
    truncate(path.c_str(), 40);
    events->names.clear();
    EXPECT_THROW(manager()->Load(TezString(path.c_str()), true), std::runtime_error);
    EXPECT_EQ((std::vector<std::string>{"Preferences Changing Event"}), events->names);
}
