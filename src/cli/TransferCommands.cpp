// export and import: the history as JSON lines, one clip per line, so that it
// moves between machines and a large library can be made from a file.

#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <istream>
#include <ostream>

#include "cli/ClipFormat.h"
#include "cli/Commands.h"
#include "cli/ImportLine.h"
#include "paste/ClipActions.h"

namespace tamarind::cli {

namespace {

// Clips ingested per commit: one commit per clip would spend most of an import in fsync.
constexpr long long kClipsPerSave = 1000;

// --- export ----------------------------------------------------------------------------------------

OrderedJson exportLine(CliContext& context, const Clip& clip) {
    OrderedJson line = clipJson(clip, true);
    if (clip.richTextData) line["richTextData"] = base64Encode(*clip.richTextData);
    if (auto image = fullImage(clip, context.store().blobStore())) {
        line["imageData"] = base64Encode(*image);
        std::string extension = clip.blobFilename ? std::filesystem::path(*clip.blobFilename).extension().string() : "";
        line["imageFileExtension"] = extension == ".tiff" ? "tiff" : "png";
    }
    return line;
}

void runExport(CliContext& context, const FilterOptions& filters) {
    ClipQuery query = queryOf(context, filters);
    Date now = context.now();
    long long written = 0;
    context.store().forEachClip(query, [&](std::vector<Clip>& clips) {
        keepWithinDays(clips, filters.withinDays, now);
        for (const Clip& clip : clips) {
            context.out() << exportLine(context, clip).dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
            ++written;
        }
    });
    context.out().flush();
    if (!context.out()) refuse("could not write the export (disk full, or the reader went away)");
    context.err() << "exported " << written << (written == 1 ? " clip" : " clips") << "\n";
}

// --- import ----------------------------------------------------------------------------------------

class Progress {
public:
    Progress(CliContext& context, long long totalBytes) : context_(context), totalBytes_(totalBytes) {}

    void update(long long lines, long long bytes, bool force = false) {
        if (!context_.isErrTerminal()) return;
        auto now = std::chrono::steady_clock::now();
        if (!force && now - shownAt_ < std::chrono::milliseconds(100)) return;
        shownAt_ = now;
        context_.err() << "\rimporting: " << lines << " lines";
        if (totalBytes_ > 0) context_.err() << " (" << std::min(100LL, bytes * 100 / totalBytes_) << "%)";
        context_.err().flush();
    }
    void finish(long long lines, long long bytes) {
        update(lines, bytes, true);
        if (context_.isErrTerminal()) context_.err() << "\n";
    }

private:
    CliContext& context_;
    long long totalBytes_;
    std::chrono::steady_clock::time_point shownAt_{};
};

void runImport(CliContext& context, const std::string& path) {
    std::ifstream file;
    long long totalBytes = 0;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file) refuse("cannot read " + path);
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0) totalBytes = static_cast<long long>(status.st_size);
    }
    std::istream& input = path == "-" ? context.in() : file;
    ClipStore& store = context.store();
    const auto& excluded = context.preferences().excludedBundleIDs().value();
    long long inserted = 0, deduplicated = 0, rejected = 0, unreadable = 0, lines = 0, bytes = 0;
    Progress progress(context, totalBytes);
    const Date importedAt = context.now();
    (void)store.setDefersSaves(true);
    store.setFindsRepeatsInWholeLibrary(true);
    // Lines count as inserted once their batch is committed; a batch that isn't is said, and the
    // import stops: run again, it finds what was kept as repeats and adds the rest.
    long long keptInserted = 0;
    std::optional<std::string> storeFailure;
    auto commitBatch = [&] {
        if (Status saved = store.setDefersSaves(false); !saved)
            refuse("could not save the library (" + saved.error() + ") after line " + std::to_string(lines) + "; " +
                   std::to_string(keptInserted) + " clips were kept before it and " +
                   std::to_string(inserted - keptInserted) +
                   " since were not. Run the import again once the library can be written: what was kept is "
                   "found as repeats.");
        keptInserted = inserted;
    };
    std::string text;
    while (std::getline(input, text)) {
        ++lines;
        bytes += static_cast<long long>(text.size()) + 1;
        if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
        ImportLine line = readImportLine(text, importedAt);
        if (line.snapshot) {
            try {
                IngestResult result = store.ingest(*line.snapshot, excluded);
                switch (result.kind) {
                case IngestResult::Kind::inserted:
                    ++inserted;
                    if (line.isFavorite) store.setFavorite(result.clipID, true);
                    if (line.isPinned) store.setPinned(result.clipID, true);
                    break;
                case IngestResult::Kind::deduplicated: ++deduplicated; break;
                case IngestResult::Kind::rejected:
                    if (result.rejection.kind == CaptureRejection::Kind::storeFailure)
                        storeFailure = result.rejection.payload;
                    ++rejected;
                    break;
                }
            } catch (const std::exception& error) {
                line.error = error.what();
            }
        }
        // The store may have given up the whole batch: nothing since the last commit counts.
        if (storeFailure)
            refuse("could not save the library (" + *storeFailure + ") at line " + std::to_string(lines) + "; " +
                   std::to_string(keptInserted) +
                   " clips were kept before it. Run the import again once the library can be written: what was "
                   "kept is found as repeats.");
        if (!line.error.empty()) {
            ++unreadable;
            if (context.isErrTerminal()) context.err() << "\r";
            context.err() << "line " << lines << ": " << line.error << "\n";
        }
        if (lines % kClipsPerSave == 0) {
            commitBatch();
            (void)store.setDefersSaves(true);
        }
        progress.update(lines, bytes);
    }
    commitBatch();
    progress.finish(lines, bytes);
    context.out() << "inserted " << inserted << ", deduplicated " << deduplicated << ", rejected " << rejected
                  << ", unreadable " << unreadable << "\n";
    if (unreadable > 0) throw CliFailure(kNotFoundOrRefused, "");
}

}  // namespace

void addTransferCommands(CLI::App& app, CliContext& context) {
    auto filters = std::make_shared<FilterOptions>();
    CLI::App* exportCommand =
        app.add_subcommand("export", "Write clips as JSON lines, oldest first, content included (> FILE.jsonl)");
    addFilterOptions(*exportCommand, *filters);
    exportCommand->callback([&context, filters] { runExport(context, *filters); });

    auto path = std::make_shared<std::string>();
    CLI::App* importCommand =
        app.add_subcommand("import", "Add the clips of an export, each through the same checks as a copy");
    importCommand->add_option("file", *path, "A .jsonl file, or '-' for stdin")->required();
    importCommand->callback([&context, path] { runImport(context, *path); });
}

}  // namespace tamarind::cli
