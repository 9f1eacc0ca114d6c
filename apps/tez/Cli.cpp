#include "tez/Cli.h"

#include "mesh/MeshWriter.h"
#include "volume/Image.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>

namespace {

constexpr size_t kNameColumn = 30;
constexpr size_t kTextColumns = 50;

// Words into lines of at most `columns` characters.
std::string Wrap(std::string const& text, size_t columns)
{
    std::string wrapped, line, word;
    std::istringstream words(text);
    while (words >> word) {
        if (!line.empty() && line.size() + 1 + word.size() > columns) {
            wrapped += line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return wrapped + line;
}

// CLI11's help with the descriptions wrapped, so that it fits 80 columns.
class Formatter : public CLI::Formatter
{
public:
    std::string make_option_desc(CLI::Option const* option) const override
    {
        return Wrap(CLI::Formatter::make_option_desc(option), kTextColumns);
    }
    std::string make_description(CLI::App const* app) const override
    {
        return Wrap(CLI::Formatter::make_description(app), kNameColumn + kTextColumns) + "\n";
    }
};

void Format(CLI::App& app)
{
    auto formatter = std::make_shared<Formatter>();
    formatter->column_width(kNameColumn);
    app.formatter(formatter);
    for (CLI::App* sub : app.get_subcommands({}))
        Format(*sub);
}

// "tez mesh fill-holes" for the sub-command fill-holes of "tez mesh".
std::string FullName(CLI::App const& app)
{
    CLI::App const* parent = app.get_parent();
    return parent ? FullName(*parent) + " " + app.get_name() : app.get_name();
}

// The help of app as the words that name it show it.
std::string Help(CLI::App const& app)
{
    CLI::App const* parent = app.get_parent();
    return app.help(parent ? FullName(*parent) : std::string());
}

std::vector<double> SplitNumbers(std::string const& text)
{
    std::vector<double> values;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, ',')) {
        size_t used = 0;
        double const value = std::stod(item, &used);
        if (used != item.size() || !std::isfinite(value))
            throw std::invalid_argument(item);
        values.push_back(value);
    }
    return values;
}

} // namespace

int TezCliParse(CLI::App& app, TezArgs const& args, FILE* out, FILE* err)
{
    Format(app);
    // Help wins wherever it stands, even where an option would take it for
    // its value ("--info --help"): the sub-commands named before it say whose.
    CLI::App* named = &app;
    for (std::string const& arg : args) {
        if (arg == "--")
            break;
        if (arg == "-h" || arg == "--help") {
            std::fputs(Help(*named).c_str(), out);
            return 0;
        }
        for (CLI::App* sub : named->get_subcommands({}))
            if (sub->check_name(arg)) {
                named = sub;
                break;
            }
    }
    // A word where a sub-command must stand that names none.
    named = &app;
    for (std::string const& arg : args) {
        std::vector<CLI::App*> const subs = named->get_subcommands({});
        if (subs.empty() || arg.empty() || arg[0] == '-')
            break;
        auto const found = std::find_if(subs.begin(), subs.end(), [&](CLI::App* sub) { return sub->check_name(arg); });
        if (found == subs.end()) {
            std::string known;
            for (CLI::App* sub : subs)
                known += (known.empty() ? "" : ", ") + sub->get_name();
            return TezCliUsageError(*named, "unknown command '" + arg + "' (known: " + known + ")", err);
        }
        named = *found;
    }
    // CLI11 takes the words last first.
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (CLI::Success const&) {
        return 0;
    } catch (CLI::ParseError const& error) {
        // The innermost command that was named speaks for the error.
        CLI::App const* named = &app;
        while (!named->get_subcommands().empty())
            named = named->get_subcommands().front();
        return TezCliUsageError(*named, error.what(), err);
    }
    return -1;
}

int TezCliUsageError(CLI::App const& app, std::string const& problem, FILE* err)
{
    std::string const name = FullName(app);
    std::fprintf(err, "%s: %s\nRun '%s --help' for its options.\n", name.c_str(), problem.c_str(), name.c_str());
    return 2;
}

CLI::Validator TezCliPictureSize(int low, int high)
{
    std::string const range = std::to_string(low) + " to " + std::to_string(high);
    return CLI::Validator(
        [low, high, range](std::string& value) -> std::string {
            int width = 0, height = 0;
            if (!TezParsePictureSize(value, width, height, low, high))
                return "'" + value + "' is no WxH size with sides from " + range + " pixels";
            return std::string();
        },
        "WxH", "size");
}

CLI::Validator TezCliImageName(bool withExr)
{
    return CLI::Validator(
        [withExr](std::string& value) -> std::string {
            bool const exr = value.size() > 4 && CLI::detail::to_lower(value.substr(value.size() - 4)) == ".exr";
            if (!TezImage::IsSavableName(value.c_str()) || (exr && !withExr))
                return "'" + value + "' must end in .png, .jpg, .jpeg, .tif, .tiff, .bmp" + (withExr ? " or .exr" : "");
            return std::string();
        },
        "", "image name");
}

CLI::Validator TezCliMeshName()
{
    return CLI::Validator(
        [](std::string& value) -> std::string {
            if (TezMeshWriter::FormatForName(value) == TezMeshWriter::Format::Unknown)
                return "'" + value + "' must end in .stl, .obj or .ply";
            return std::string();
        },
        "", "mesh name");
}

CLI::Validator TezCliNumbers(size_t minCount, size_t maxCount, double low, double high)
{
    std::ostringstream wanted;
    wanted << (minCount == maxCount ? std::to_string(minCount)
                                    : std::to_string(minCount) + " to " + std::to_string(maxCount))
           << " comma-separated numbers from " << low << " to " << high;
    std::string const description = wanted.str();
    return CLI::Validator(
        [=](std::string& value) -> std::string {
            std::vector<double> numbers;
            try {
                numbers = SplitNumbers(value);
            } catch (std::exception const&) {
                return "'" + value + "' is not " + description;
            }
            bool const counted = numbers.size() >= minCount && numbers.size() <= maxCount;
            bool const inRange =
                std::all_of(numbers.begin(), numbers.end(), [&](double v) { return v >= low && v <= high; });
            if (!counted || !inRange)
                return "'" + value + "' is not " + description;
            return std::string();
        },
        "", "numbers");
}
