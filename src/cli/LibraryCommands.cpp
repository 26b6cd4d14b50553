// collections, stats, retention, purge-tombstones, remove-orphans, wipe and doctor.

#include <sys/stat.h>

#include <cstdlib>
#include <ostream>

#include "cli/ClipFormat.h"
#include "cli/Commands.h"
#include "foundation/Text.h"
#include "platform/x11/X11Connection.h"

namespace tamarind::cli {

namespace {

// --- collections -----------------------------------------------------------------------------------

OrderedJson collectionJson(const Collection& collection) {
    OrderedJson members = OrderedJson::array();
    for (const Uuid& id : collection.clipIDs) members.push_back(id.uuidString());
    return OrderedJson{{"id", collection.id.uuidString()},    {"name", collection.name},
                {"iconName", collection.iconName},      {"colorHex", collection.colorHex},
                {"sortIndex", collection.sortIndex},    {"createdAt", isoDate(collection.createdAt)},
                {"viewMode", collection.viewMode},      {"boardColumns", collection.boardColumns()},
                {"clipIDs", members}};
}

std::vector<Uuid> resolveClips(CliContext& context, const std::vector<std::string>& arguments) {
    std::vector<Uuid> ids;
    for (const std::string& argument : arguments) ids.push_back(context.resolveClip(argument));
    return ids;
}

void addCollectionCommands(CLI::App& app, CliContext& context) {
    CLI::App* collections = addListingCommand(app, "collections", "List and change collections (list by default)",
                                              "List collections in their order", [&context](bool json) {
        auto all = context.store().collections();
        if (json) {
            OrderedJson array = OrderedJson::array();
            for (const Collection& collection : all) array.push_back(collectionJson(collection));
            printJson(context, array);
            return;
        }
        for (const Collection& collection : all)
            context.out() << collection.id.uuidString().substr(0, kShownIDLength) << "  " << collection.name << "  ("
                          << collection.clipIDs.size() << (collection.clipIDs.size() == 1 ? " clip" : " clips")
                          << ")\n";
    }).command;

    auto name = std::make_shared<std::string>();
    auto createJson = std::make_shared<bool>(false);
    CLI::App* create = collections->add_subcommand("create", "Create a collection and print its id");
    create->add_option("name", *name, "Its name")->required();
    create->add_flag("--json", *createJson, "Print the new collection as JSON, as `collections --json` lists it");
    create->callback([&context, name, createJson] {
        if (trimmed(*name).empty()) badUsage("a collection needs a name");
        Collection collection = context.store().createCollection(*name);
        if (*createJson) return printJson(context, collectionJson(collection));
        context.out() << collection.id.uuidString() << "\n";
    });

    auto renaming = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* rename = collections->add_subcommand("rename", "Rename a collection");
    rename->add_option("collection", renaming->first, "Name or id")->required();
    rename->add_option("name", renaming->second, "The new name")->required();
    rename->callback([&context, renaming] {
        if (trimmed(renaming->second).empty()) badUsage("a collection needs a name");
        context.store().renameCollection(context.resolveCollection(renaming->first).id, renaming->second);
    });

    auto removed = std::make_shared<std::string>();
    CLI::App* remove = collections->add_subcommand("delete", "Delete a collection (its clips stay)");
    remove->add_option("collection", *removed, "Name or id")->required();
    remove->callback([&context, removed] {
        context.store().deleteCollection(context.resolveCollection(*removed).id);
    });

    for (bool adds : {true, false}) {
        auto members = std::make_shared<std::pair<std::string, std::vector<std::string>>>();
        CLI::App* command = collections->add_subcommand(adds ? "add" : "remove",
                                                        adds ? "Add clips to a collection" : "Take clips out of a collection");
        command->add_option("collection", members->first, "Name or id")->required();
        command->add_option("ids", members->second, "Clip ids or unique prefixes")->required();
        command->callback([&context, members, adds] {
            Uuid collection = context.resolveCollection(members->first).id;
            auto clips = resolveClips(context, members->second);
            if (adds) {
                context.store().addClips(clips, collection);
            } else {
                context.store().removeClips(clips, collection);
            }
        });
    }
}

// --- stats and maintenance -------------------------------------------------------------------------

void runStats(CliContext& context, bool json) {
    LibraryFacets facets = context.store().facets();
    StorageUsage usage = ClipStore::storageUsage(context.paths().applicationSupport);
    if (json) {
        OrderedJson kinds = OrderedJson::object();
        for (const auto& [kind, count] : facets.kindCounts) kinds[std::string(rawValue(kind))] = count;
        OrderedJson apps = OrderedJson::array();
        for (const SourceAppFacet& app : facets.apps)
            apps.push_back(OrderedJson{{"bundleID", app.bundleID}, {"name", app.name}, {"count", app.count}});
        printJson(context, OrderedJson{{"total", facets.total},
                                {"favorites", facets.favorites},
                                {"pinned", facets.pinned},
                                {"kindCounts", kinds},
                                {"apps", apps},
                                {"storage",
                                 {{"databaseBytes", usage.databaseBytes},
                                  {"blobBytes", usage.blobBytes},
                                  {"cacheBytes", usage.cacheBytes}}}});
        return;
    }
    std::ostream& out = context.out();
    out << "clips       " << facets.total << " (" << facets.favorites << " favourites, " << facets.pinned
        << " pinned)\n";
    for (const auto& [kind, count] : facets.kindCounts) out << "  " << label(kind) << ": " << count << "\n";
    if (!facets.apps.empty()) out << "applications\n";
    for (const SourceAppFacet& app : facets.apps)
        out << "  " << (app.name.empty() ? app.bundleID : app.name + " (" + app.bundleID + ")") << ": " << app.count
            << "\n";
    auto size = [](long long bytes) {
        if (bytes < 1'048'576) return std::to_string((bytes + 512) / 1024) + " KB";
        return std::to_string((bytes + 524'288) / 1'048'576) + " MB";
    };
    out << "storage     " << size(usage.databaseBytes) << " in stores, " << size(usage.blobBytes) << " of images, "
        << size(usage.cacheBytes) << " of caches\n";
}

void addMaintenanceCommands(CLI::App& app, CliContext& context) {
    auto statsJson = std::make_shared<bool>(false);
    CLI::App* stats = app.add_subcommand("stats", "Counts by kind and application, and the disk the library takes");
    stats->add_flag("--json", *statsJson, "Print one JSON object");
    stats->callback([&context, statsJson] { runStats(context, *statsJson); });

    app.add_subcommand("retention", "Apply the retention settings now (capture.maximumClipCount, capture.maximumAgeInDays)")
        ->callback([&context] {
            ClipStore& store = context.store();
            long long before = store.count({});
            CapturePreferences& preferences = context.preferences();
            store.applyRetention(preferences.maximumClipCount().value(), preferences.maximumAgeInDays().value(),
                                 context.now());
            long long removed = before - store.count({});
            context.out() << "removed " << removed << (removed == 1 ? " clip" : " clips") << "\n";
        });
    app.add_subcommand("purge-tombstones", "Remove deletion records older than 30 days")->callback([&context] {
        context.store().purgeTombstones(context.now());
    });
    app.add_subcommand("remove-orphans", "Remove image files no clip refers to")->callback([&context] {
        context.store().removeOrphanedBlobs();
    });

    auto yes = std::make_shared<bool>(false);
    CLI::App* wipe = app.add_subcommand("wipe", "Delete every clip (asks for --yes)");
    wipe->add_flag("--yes", *yes, "Confirm");
    wipe->callback([&context, yes] {
        if (!*yes) {
            context.err() << kDeleteAllConfirmation << "\n";
            refuse("nothing was deleted; run `tamarind wipe --yes` to " + lowercased(kDeleteAllButton));
        }
        context.store().deleteAll();
        context.out() << "deleted everything\n";
    });
}

// --- doctor ----------------------------------------------------------------------------------------

struct Checkup {
    std::ostream& out;
    int problems = 0;

    void line(bool isGood, const std::string& subject, const std::string& detail) {
        if (!isGood) ++problems;
        out << (isGood ? "ok    " : "FAIL  ") << subject << (detail.empty() ? "" : ": " + detail) << "\n";
    }
    void note(const std::string& subject, const std::string& detail) { out << "      " << subject << ": " << detail << "\n"; }
};

std::string modeOf(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return "missing";
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", status.st_mode & 07777);
    return mode;
}

void checkStore(Checkup& checkup, const std::filesystem::path& file) {
    if (!std::filesystem::exists(file)) {
        checkup.note(file.filename().string(), "not created yet");
        return;
    }
    auto health = ModelContainer::inspect(file);
    if (!health) {
        checkup.line(false, file.filename().string(), health.error());
        return;
    }
    checkup.line(health->integrity == "ok" && health->schemaVersion == kSchemaVersion, file.filename().string(),
                 "schema " + health->schemaVersion + ", " + std::to_string(health->liveClips) + " clips, integrity " +
                     health->integrity + ", mode " + modeOf(file));
}

void checkDisplay(Checkup& checkup, MainLoop& loop) {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* session = std::getenv("XDG_SESSION_TYPE");
    checkup.note("session", std::string(session ? session : "unknown") + (wayland ? ", Wayland display " + std::string(wayland) : ""));
    const char* display = std::getenv("DISPLAY");
    if (!display) {
        checkup.line(false, "X11 display", "DISPLAY is not set; capture and paste need an X server (the commands work without one)");
        return;
    }
    auto opened = X11Connection::open(loop);
    auto* x11 = std::get_if<std::unique_ptr<X11Connection>>(&opened);
    if (!x11) {
        checkup.line(false, "X11 display", std::string("cannot connect to ") + display);
        return;
    }
    checkup.line(true, "X11 display", display);
    // Capture watches the clipboard with XFIXES; paste types with XTEST; hotkeys and the
    // pointer's screen use the rest.
    for (const char* extension : {"XFIXES", "XTEST", "RANDR", "XInputExtension"}) {
        bool present = (*x11)->hasExtension(extension);
        checkup.line(present, "X11 extension " + std::string(extension), present ? "present" : "missing");
    }
}

void checkPackages(Checkup& checkup) {
    // What the program needs at run time beyond its own libraries.
    for (const char* package : {"tesseract-ocr-eng", "xclip"}) {
        std::string command = std::string("dpkg-query -W -f='${db:Status-Status}' ") + package + " 2>/dev/null";
        std::string status;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char buffer[64];
            while (std::fgets(buffer, sizeof buffer, pipe)) status += buffer;
            ::pclose(pipe);
        }
        checkup.line(status == "installed", std::string("package ") + package,
                     status.empty() ? "not installed" : status);
    }
}

void runDoctor(CliContext& context) {
    Checkup checkup{context.out()};
    const Paths& paths = context.paths();
    checkup.note("library", paths.applicationSupport.string() + " (mode " + modeOf(paths.applicationSupport) + ")");
    checkup.note("settings", paths.defaultsFile().string() + " (mode " + modeOf(paths.defaultsFile()) + ")");
    checkup.note("cache", paths.cache.string());
    checkStore(checkup, paths.applicationSupport / kMainStoreFilename);
    checkStore(checkup, paths.applicationSupport / kVaultStoreFilename);
    checkDisplay(checkup, context.loop());
    checkPackages(checkup);
    if (checkup.problems > 0)
        refuse(std::to_string(checkup.problems) + (checkup.problems == 1 ? " problem" : " problems") + " found");
}

}  // namespace

void addLibraryCommands(CLI::App& app, CliContext& context) {
    addCollectionCommands(app, context);
    addMaintenanceCommands(app, context);
    app.add_subcommand("doctor", "Check the paths, the stores, the display and the packages")->callback([&context] {
        runDoctor(context);
    });
}

}  // namespace tamarind::cli
