#include "cli/CliContext.h"

#include <ostream>

#include "foundation/MachineID.h"
#include "foundation/PlistFileDefaults.h"
#include "foundation/Text.h"

namespace tamarind::cli {

namespace {

// How many matches an ambiguous prefix lists.
constexpr int kListedAmbiguousMatches = 5;

// A command has no loop to keep free: it waits out another process's write rather than fail.
constexpr std::chrono::milliseconds kCommandBusyTimeout = std::chrono::seconds(30);

bool isIDCharacter(char c) { return std::isxdigit(static_cast<unsigned char>(c)) || c == '-'; }

// What the ingest runs, read without making a SmartRuleStore: on a first run that seeds the
// examples, and `add` and `import` never write the settings.
std::vector<SmartRule> storedActiveRules(const Defaults& defaults) {
    auto stored = defaults.data(ruleKeys::smartRules);
    if (!stored) return {};
    return activeRules(decodeRules(stringFromData(*stored)).rules.value_or(std::vector<SmartRule>{}));
}

}  // namespace

CliContext::CliContext(Paths paths, CliStreams streams) : paths_(std::move(paths)), streams_(streams) {}

CliContext::~CliContext() = default;

Defaults& CliContext::defaults() {
    if (!defaults_) defaults_ = std::make_unique<PlistFileDefaults>(paths_.defaultsFile());
    return *defaults_;
}

std::optional<std::string> CliContext::unsavedSettings() const {
    return defaults_ ? defaults_->unsavedBecause() : std::nullopt;
}

CapturePreferences& CliContext::preferences() {
    if (!preferences_) preferences_ = std::make_unique<CapturePreferences>(defaults(), loop_);
    return *preferences_;
}

AppearancePreferences& CliContext::appearance() {
    if (!appearance_) appearance_ = std::make_unique<AppearancePreferences>(defaults(), loop_);
    return *appearance_;
}

SmartRuleStore& CliContext::rules() {
    if (!rules_) rules_ = std::make_unique<SmartRuleStore>(defaults(), loop_);
    return *rules_;
}

ClipStore& CliContext::store() {
    if (store_) return *store_;
    if (auto error = paths_.createFolders())
        refuse("cannot create the library folder " + paths_.applicationSupport.string() + ": " + error->message);
    TamarindStores stores = openStores(paths_.applicationSupport, StoreOptions{.busyTimeout = kCommandBusyTimeout});
    if (stores.main->isInMemory())
        refuse("cannot open the library at " + (paths_.applicationSupport / kMainStoreFilename).string() +
               " (see the line above); the file was left as it is. `tamarind doctor` tells more.");
    rulesInForce_ = std::make_unique<RulesInForce>(
        [this] { return rules_ ? rules_->activeRules() : storedActiveRules(defaults()); });
    store_ = std::make_unique<ClipStore>(loop_, std::move(stores), BlobStore(paths_.blobs()), machineID(defaults()),
                                         IngestPolicy{rulesInForce_.get(), &secretDetector_});
    store_->setCaptureLimits(captureLimits(preferences()));
    return *store_;
}

Uuid CliContext::resolveClip(const std::string& argument) {
    if (auto id = Uuid::parse(argument)) {
        if (!store().clip(*id)) refuse("no clip has the id " + argument);
        return *id;
    }
    if (argument.size() < kMinimumIDPrefix || !std::all_of(argument.begin(), argument.end(), isIDCharacter))
        badUsage("'" + argument + "' is not a clip id (a UUID, or at least " + std::to_string(kMinimumIDPrefix) +
                 " of its first characters)");
    auto matches = store().clipIDsWithPrefix(argument, kListedAmbiguousMatches + 1);
    if (matches.empty()) refuse("no clip has an id starting with " + argument);
    if (matches.size() > 1) {
        std::string listed;
        for (std::size_t i = 0; i < matches.size() && i < kListedAmbiguousMatches; ++i)
            listed += "\n  " + matches[i].uuidString();
        if (matches.size() > kListedAmbiguousMatches) listed += "\n  ...";
        refuse("the id prefix " + argument + " is ambiguous; it starts:" + listed);
    }
    return matches.front();
}

Collection CliContext::resolveCollection(const std::string& argument) {
    auto collections = store().collections();
    std::vector<Collection> byID, byName;
    for (const Collection& collection : collections) {
        if (collection.name == argument) byName.push_back(collection);
        std::string id = collection.id.uuidString();
        if (argument.size() >= kMinimumIDPrefix && caseInsensitiveEquals(id.substr(0, argument.size()), argument))
            byID.push_back(collection);
    }
    const auto& found = byID.empty() ? byName : byID;
    if (found.empty()) refuse("no collection is named or has the id " + argument);
    if (found.size() > 1) {
        std::string listed;
        for (const Collection& collection : found) listed += "\n  " + collection.id.uuidString() + "  " + collection.name;
        refuse("'" + argument + "' names more than one collection:" + listed);
    }
    return found.front();
}

}  // namespace tamarind::cli
