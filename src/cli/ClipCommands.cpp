// add, list, search, show, get, delete, pin, favorite and sensitive.

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "cli/ClipFormat.h"
#include "cli/Commands.h"
#include "paste/ClipActions.h"
#include "foundation/Files.h"
#include "foundation/Text.h"
#include "library/ClipClassifier.h"
#include "library/FileBookmark.h"
#include "foundation/ImageCodec.h"

namespace tamarind::cli {

namespace {

constexpr int kDefaultPageSize = 50;
constexpr std::size_t kPipedLineWidth = 120;

// --- shared ----------------------------------------------------------------------------------------

std::string kindNames() {
    std::string names;
    for (ClipKind kind : kAllClipKinds) names += (names.empty() ? "" : ", ") + std::string(rawValue(kind));
    return names;
}

std::size_t lineWidth(CliContext& context) {
    if (!context.isOutTerminal()) return kPipedLineWidth;
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20) return size.ws_col;
    return 80;
}

// --- add -------------------------------------------------------------------------------------------

struct AddOptions {
    std::optional<std::string> text;
    std::optional<std::string> html;
    std::optional<std::string> rtf;
    std::optional<std::string> image;
    std::vector<std::string> files;
    std::vector<std::string> types;
    std::optional<std::string> sourceApp;
    std::optional<std::string> sourceName;
    bool json = false;
};

// PNG and TIFF are kept as they are; anything else Leptonica reads becomes PNG.
void putImage(PasteboardSnapshot& snapshot, const std::string& path, const std::string& bytes) {
    std::string_view header(bytes);
    Data data = dataFromString(bytes);
    if (header.starts_with("\x89PNG\r\n\x1a\n")) {
        snapshot.imageFileExtension = "png";
    } else if (header.starts_with(std::string_view("II*\0", 4)) || header.starts_with(std::string_view("MM\0*", 4))) {
        snapshot.imageFileExtension = "tiff";
    } else {
        auto png = convertToPng(data);
        if (!png) refuse(path + " is not an image this program can read (PNG, TIFF, JPEG, GIF, BMP, WebP)");
        data = std::move(*png);
        snapshot.imageFileExtension = "png";
    }
    snapshot.imagePixelSize = imagePixelSize(data);
    if (!snapshot.imagePixelSize) refuse(path + " is not an image this program can read");
    snapshot.imageData = std::move(data);
}

// Reads stdin up to one byte past the byte limit, so that a huge pipe is refused without
// being held in memory.
std::string readStdinText(CliContext& context, long long maximumBytes) {
    std::string text;
    char buffer[1 << 16];
    while (context.in().read(buffer, sizeof buffer) || context.in().gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(context.in().gcount()));
        if (maximumBytes > 0 && static_cast<long long>(text.size()) > maximumBytes) break;
    }
    return text;
}

std::string megabytes(long long bytes) {
    std::ostringstream text;
    text << static_cast<double>(bytes) / 1'048'576;
    return text.str() + " MB";
}

PasteboardSnapshot snapshotOf(CliContext& context, const AddOptions& options) {
    PasteboardSnapshot snapshot;
    snapshot.capturedAt = context.now();
    long long maximumBytes = context.store().captureLimits().maximumBytes;
    bool hasContent = options.text || options.html || options.rtf || options.image || !options.files.empty();
    if ((options.text && *options.text == "-") || (!hasContent && !context.isInTerminal())) {
        snapshot.string = readStdinText(context, maximumBytes);
    } else if (options.text) {
        snapshot.string = *options.text;
    } else if (!hasContent) {
        badUsage("nothing to add: give --text TEXT, '-' for stdin, --html, --rtf, --image or --file");
    }
    if (snapshot.string && !isValidUtf8(*snapshot.string))
        badUsage("the text is not UTF-8; add binary data with --image or --file");
    if (snapshot.string) snapshot.types.push_back("text/plain;charset=utf-8");
    if (options.html) {
        snapshot.htmlString = readInput(context, *options.html);
        snapshot.types.push_back("text/html");
    }
    if (options.rtf) {
        snapshot.rtfData = dataFromString(readInput(context, *options.rtf));
        snapshot.types.push_back("text/rtf");
    }
    if (options.image) {
        putImage(snapshot, *options.image, readInput(context, *options.image));
        snapshot.types.push_back("image/" + *snapshot.imageFileExtension);
    }
    for (const std::string& path : options.files) {
        std::error_code error;
        auto absolute = std::filesystem::absolute(path, error);
        if (error || !std::filesystem::exists(absolute, error)) refuse("no such file: " + path);
        snapshot.fileURLs.push_back(FileURL{absolute.lexically_normal().string()});
    }
    if (!snapshot.fileURLs.empty()) snapshot.types.push_back("text/uri-list");
    snapshot.types.insert(snapshot.types.end(), options.types.begin(), options.types.end());
    snapshot.sourceAppBundleID = options.sourceApp;
    snapshot.sourceAppName = options.sourceName;
    if (maximumBytes > 0 && snapshot.estimatedByteSize() > maximumBytes)
        refuse("rejected: larger than the capture limit of " + megabytes(maximumBytes) +
               " (the setting capture.maximumMegabytes)");
    return snapshot;
}

std::string rejectionReason(const CaptureRejection& rejection) {
    switch (rejection.kind) {
    case CaptureRejection::Kind::concealedPasteboardType: return "concealedPasteboardType";
    case CaptureRejection::Kind::excludedApp: return "excludedApp";
    case CaptureRejection::Kind::empty: return "empty";
    case CaptureRejection::Kind::storeFailure: return "storeFailure";
    }
    return "empty";
}

void runAdd(CliContext& context, const AddOptions& options) {
    PasteboardSnapshot snapshot = snapshotOf(context, options);
    ClipStore& store = context.store();
    std::string detail;
    // The ingest rejects a capture outside the limits as empty; the user is told which limit.
    if (!ClipStore::captureRejection(snapshot, context.preferences().excludedBundleIDs().value()) &&
        ClipStore::isOutsideLimits(snapshot, classify(snapshot), store.captureLimits()))
        detail = "outside the capture limits (capture.minimumCharacters " +
                 std::to_string(store.captureLimits().minimumCharacters) + ", capture.maximumMegabytes)";
    IngestResult result = store.ingest(snapshot, context.preferences().excludedBundleIDs().value());
    if (result.kind == IngestResult::Kind::rejected) {
        if (detail.empty()) detail = result.rejection.payload;
        std::string reason = rejectionReason(result.rejection);
        if (options.json) {
            printJson(context, OrderedJson{{"result", "rejected"}, {"reason", reason}, {"detail", detail}});
        } else {
            context.out() << "rejected: " << reason << (detail.empty() ? "" : " (" + detail + ")") << "\n";
        }
        throw CliFailure(kNotFoundOrRefused, "");
    }
    const char* word = result.kind == IngestResult::Kind::inserted ? "inserted" : "deduplicated";
    if (options.json) {
        printJson(context, OrderedJson{{"result", word}, {"id", result.clipID.uuidString()}});
    } else {
        context.out() << word << " " << result.clipID.uuidString() << "\n";
    }
}

// --- list ------------------------------------------------------------------------------------------

struct ListOptions {
    FilterOptions filters;
    std::string sort = "newest";
    int page = 0;
    int limit = kDefaultPageSize;
    std::optional<std::string> smart;
    bool json = false;
    bool reveal = false;
    bool count = false;
};

ClipSortOrder sortOrder(const std::string& name) {
    if (name == "oldest") return ClipSortOrder::oldest;
    if (name == "most-used") return ClipSortOrder::mostUsed;
    if (name == "largest") return ClipSortOrder::largest;
    return ClipSortOrder::newest;
}

void runList(CliContext& context, const ListOptions& options) {
    ClipQuery query;
    std::optional<long long> withinDays = options.filters.withinDays;
    if (options.smart) {
        const SmartCollection& smart = resolveSmartCollection(context, *options.smart);
        query = context.rules().queryFor(smart.id, options.filters.search);
        withinDays = query.withinDays;
    } else {
        query = queryOf(context, options.filters);
    }
    if (options.count) {
        // The store counts without the collection filter and the age limit; those need the clips.
        if (!query.collectionID && !withinDays) {
            context.out() << context.store().count(query) << "\n";
            return;
        }
        long long matching = 0;
        context.store().forEachClip(query, [&](std::vector<Clip>& clips) {
            matching += static_cast<long long>(clipsWithinDays(std::move(clips), withinDays, context.now()).size());
        });
        context.out() << matching << "\n";
        return;
    }
    auto clips = context.store().fetchPage(options.page, query, sortOrder(options.sort), options.limit);
    keepWithinDays(clips, withinDays, context.now());
    if (options.json) {
        OrderedJson array = OrderedJson::array();
        for (const Clip& clip : clips) array.push_back(clipJson(clip, options.reveal));
        printJson(context, array);
        return;
    }
    std::size_t width = lineWidth(context);
    Date now = context.now();
    for (const Clip& clip : clips) context.out() << clipLine(clip, now, options.reveal, width) << "\n";
}

void addListOptions(CLI::App& command, ListOptions& options) {
    addFilterOptions(command, options.filters);
    command.add_option("--sort", options.sort, "Order: newest, oldest, most-used or largest")
        ->check(CLI::IsMember({"newest", "oldest", "most-used", "largest"}))
        ->capture_default_str();
    command.add_option("--page", options.page, "Page number, from 0")->check(CLI::NonNegativeNumber);
    command.add_option("--limit", options.limit, "Clips per page")->check(CLI::Range(1, 100000))->capture_default_str();
    command.add_option("--smart", options.smart, "Show a smart collection, by name or id")
        ->excludes(command.get_option("--kind"))
        ->excludes(command.get_option("--app"))
        ->excludes(command.get_option("--collection"))
        ->excludes(command.get_option("--favorites"))
        ->excludes(command.get_option("--pinned"))
        ->excludes(command.get_option("--within-days"));
    command.add_flag("--json", options.json, "Print a JSON array of clips");
    command.add_flag("--count", options.count, "Print only how many clips match");
    command.add_flag("--reveal", options.reveal, "Show the content of sensitive clips");
}

// --- show, get -------------------------------------------------------------------------------------

void runShow(CliContext& context, const std::string& argument, bool json, bool reveal) {
    Clip clip = *context.store().clip(context.resolveClip(argument));
    if (json) {
        printJson(context, clipJson(clip, reveal));
        return;
    }
    OrderedJson fields = clipJson(clip, reveal);
    for (const auto& [key, value] : fields.items()) {
        if (value.is_null()) continue;
        context.out() << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
    }
}

// The full image, else at least the thumbnail.
std::optional<std::string> imageBytes(CliContext& context, const Clip& clip) {
    if (auto image = fullImage(clip, context.store().blobStore())) return stringFromData(*image);
    if (clip.thumbnailData) return stringFromData(*clip.thumbnailData);
    return std::nullopt;
}

// What a paste of the clip as plain text would give, for pipes.
std::optional<std::string> plainText(const Clip& clip) {
    if (clip.fileBookmarks) {
        std::vector<std::string> paths;
        for (const FileURL& file : decodeFileBookmarks(*clip.fileBookmarks)) paths.push_back(file.path);
        if (!paths.empty()) return join(paths, "\n");
    }
    if (clip.text) return clip.text;
    if (clip.urlString) return clip.urlString;
    if (clip.hexColor) return clip.hexColor;
    return clip.ocrText;
}

void runGet(CliContext& context, const std::string& argument, const std::string& as) {
    Clip clip = *context.store().clip(context.resolveClip(argument));
    ClipKind kind = clip.clipKind();
    std::string representation = as;
    if (representation.empty())
        representation = kind == ClipKind::image || kind == ClipKind::screenshot ? "image" : "text";
    std::optional<std::string> bytes;
    if (representation == "text") bytes = plainText(clip);
    if (representation == "html") bytes = clip.htmlString;
    if (representation == "rtf" && clip.richTextData) bytes = stringFromData(*clip.richTextData);
    if (representation == "image") bytes = imageBytes(context, clip);
    if (!bytes) refuse("clip " + clip.id.uuidString().substr(0, kShownIDLength) + " has no " + representation);
    if (representation == "image" && context.isOutTerminal())
        refuse("not writing image bytes to a terminal; redirect them: tamarind get " + argument + " > image.png");
    context.out() << *bytes;
}

// --- flags -----------------------------------------------------------------------------------------

void addFlagCommand(CLI::App& app, CliContext& context, const char* name, const char* help,
                    void (ClipStore::*setter)(const Uuid&, bool)) {
    auto ids = std::make_shared<std::vector<std::string>>();
    auto off = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(name, help);
    command->add_option("ids", *ids, "Clip ids or unique prefixes")->required();
    command->add_flag("--off", *off, "Clear the mark instead");
    command->callback([&context, ids, off, setter] {
        std::vector<Uuid> resolved;
        for (const std::string& id : *ids) resolved.push_back(context.resolveClip(id));
        for (const Uuid& id : resolved) (context.store().*setter)(id, !*off);
    });
}

}  // namespace

// --- shared, declared in Commands.h ----------------------------------------------------------------

void addFilterOptions(CLI::App& command, FilterOptions& filters) {
    command.add_option("--search", filters.search, "Only clips containing this text (case and accents ignored)");
    command.add_option("--kind", filters.kind, "Only clips of this kind: " + kindNames());
    command.add_option("--app", filters.app, "Only clips copied from this application id");
    command.add_option("--collection", filters.collection, "Only clips in this collection, by name or id");
    command.add_flag("--favorites", filters.favorites, "Only favourites");
    command.add_flag("--pinned", filters.pinned, "Only pinned clips");
    command.add_option("--within-days", filters.withinDays, "Only clips made in the last N days")
        ->check(CLI::PositiveNumber);
}

ClipQuery queryOf(CliContext& context, const FilterOptions& filters) {
    ClipQuery query;
    query.text = filters.search;
    if (!filters.kind.empty()) {
        query.kind = clipKindFromRawValue(filters.kind);
        if (!query.kind) badUsage("--kind: '" + filters.kind + "' is not a kind; use one of " + kindNames());
    }
    if (!filters.app.empty()) query.appBundleID = filters.app;
    if (!filters.collection.empty()) query.collectionID = context.resolveCollection(filters.collection).id;
    query.onlyFavorites = filters.favorites;
    query.onlyPinned = filters.pinned;
    query.withinDays = filters.withinDays;
    return query;
}

void keepWithinDays(std::vector<Clip>& clips, std::optional<long long> days, Date now) {
    clips = clipsWithinDays(std::move(clips), days, now);
}

std::string readInput(CliContext& context, const std::string& path) {
    if (path == "-") return std::string(std::istreambuf_iterator<char>(context.in()), {});
    auto contents = readWholeFile(path);
    if (contents.notFound) refuse("no such file: " + path);
    if (!contents.bytes) refuse("cannot read " + path + ": " + (contents.error ? contents.error->message : ""));
    return *contents.bytes;
}

ListingCommand addListingCommand(CLI::App& app, const std::string& name, const std::string& help,
                                 const std::string& listHelp, std::function<void(bool json)> list) {
    ListingCommand listing{app.add_subcommand(name, help), std::make_shared<bool>(false)};
    listing.command->add_flag("--json", *listing.json, "Print JSON");
    listing.command->fallthrough();  // `NAME list --json` too
    auto json = listing.json;
    listing.command->add_subcommand("list", listHelp)->callback([list, json] { list(*json); });
    listing.command->callback([command = listing.command, list, json] {
        if (command->get_subcommands().empty()) list(*json);
    });
    return listing;
}

void addClipCommands(CLI::App& app, CliContext& context) {
    auto add = std::make_shared<AddOptions>();
    CLI::App* addCommand = app.add_subcommand("add", "Add a clip, through the same checks as a copy");
    CLI::Option* text = addCommand->add_option(
        "text", add->text, "The clip's text; '-' (or no content at all, with stdin a pipe) reads it from stdin");
    addCommand->add_option("--text", add->text, "The same as the text argument")->excludes(text);
    addCommand->add_option("--html", add->html, "An HTML file beside the text")->check(CLI::ExistingFile);
    addCommand->add_option("--rtf", add->rtf, "An RTF file beside the text")->check(CLI::ExistingFile);
    addCommand->add_option("--image", add->image, "An image file (PNG, TIFF, JPEG; others are converted to PNG)")
        ->check(CLI::ExistingFile);
    addCommand->add_option("--file", add->files, "A file to add by reference (repeatable)");
    addCommand->add_option("--type", add->types, "Another clipboard type to offer, e.g. a marker (repeatable)");
    addCommand->add_option("--source-app", add->sourceApp, "The application id it came from");
    addCommand->add_option("--source-name", add->sourceName, "The application's name");
    addCommand->add_flag("--json", add->json, "Print the result as one JSON object");
    addCommand->callback([&context, add] { runAdd(context, *add); });

    auto list = std::make_shared<ListOptions>();
    CLI::App* listCommand = app.add_subcommand("list", "List clips, newest first");
    addListOptions(*listCommand, *list);
    listCommand->callback([&context, list] { runList(context, *list); });

    auto search = std::make_shared<ListOptions>();
    CLI::App* searchCommand = app.add_subcommand("search", "List clips containing TEXT (list --search TEXT)");
    searchCommand->add_option("text", search->filters.search, "The text to find")->required();
    addListOptions(*searchCommand, *search);
    searchCommand->callback([&context, search] { runList(context, *search); });

    auto show = std::make_shared<std::tuple<std::string, bool, bool>>();
    CLI::App* showCommand = app.add_subcommand("show", "Show every field of one clip");
    showCommand->add_option("id", std::get<0>(*show), "Clip id or unique prefix")->required();
    showCommand->add_flag("--json", std::get<1>(*show), "Print one JSON object");
    showCommand->add_flag("--reveal", std::get<2>(*show), "Show the content of a sensitive clip");
    showCommand->callback([&context, show] { runShow(context, std::get<0>(*show), std::get<1>(*show), std::get<2>(*show)); });

    auto get = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* getCommand = app.add_subcommand("get", "Write a clip's content to stdout, for pipes");
    getCommand->add_option("id", get->first, "Clip id or unique prefix")->required();
    getCommand->add_option("--as", get->second, "text, html, rtf or image (default: image for images, else text)")
        ->check(CLI::IsMember({"text", "html", "rtf", "image"}));
    getCommand->callback([&context, get] { runGet(context, get->first, get->second); });

    auto remove = std::make_shared<std::vector<std::string>>();
    CLI::App* deleteCommand = app.add_subcommand("delete", "Delete clips");
    deleteCommand->add_option("ids", *remove, "Clip ids or unique prefixes")->required();
    deleteCommand->callback([&context, remove] {
        std::vector<Uuid> ids;
        for (const std::string& id : *remove) ids.push_back(context.resolveClip(id));
        context.store().deleteClips(ids);
        context.out() << "deleted " << ids.size() << (ids.size() == 1 ? " clip" : " clips") << "\n";
    });

    addFlagCommand(app, context, "pin", "Pin clips (--off to unpin)", &ClipStore::setPinned);
    addFlagCommand(app, context, "favorite", "Mark clips as favourites (--off to unmark)", &ClipStore::setFavorite);
    addFlagCommand(app, context, "sensitive", "Mark clips as sensitive (--off to unmark)", &ClipStore::setSensitive);
}

}  // namespace tamarind::cli
