// rules and smart: capture rules in their stored JSON form, and saved filters.

#include <ostream>

#include "cli/ClipFormat.h"
#include "cli/Commands.h"
#include "foundation/Text.h"

namespace tamarind::cli {

namespace {

// By full id, unique id prefix (either case) or exact name, over any list of things with both.
template <class Item>
const Item& resolveNamed(const std::vector<Item>& items, const std::string& argument, const std::string& what) {
    std::vector<const Item*> found;
    for (const Item& item : items) {
        std::string id = item.id.uuidString();
        bool isPrefix = argument.size() >= kMinimumIDPrefix && argument.size() <= id.size() &&
                        caseInsensitiveEquals(std::string_view(id).substr(0, argument.size()), argument);
        if (isPrefix) found.push_back(&item);
    }
    if (found.empty())
        for (const Item& item : items)
            if (item.name == argument) found.push_back(&item);
    if (found.empty()) refuse("no " + what + " is named or has the id " + argument);
    if (found.size() > 1) {
        std::string listed;
        for (const Item* item : found) listed += "\n  " + item->id.uuidString() + "  " + item->name;
        refuse("'" + argument + "' names more than one " + what + ":" + listed);
    }
    return *found.front();
}

const SmartRule& resolveRule(CliContext& context, const std::string& argument) {
    return resolveNamed(context.rules().rules().value(), argument, "rule");
}

// One rule in its stored JSON form; the whole input is the rule.
SmartRule ruleFromText(const std::string& text, const std::string& source) {
    Json value = Json::parse(text, nullptr, false);
    if (value.is_discarded()) badUsage(source + " is not JSON");
    try {
        return smartRuleFromJson(value);
    } catch (const std::exception& error) {
        badUsage(source + " is not a rule: " + error.what());
    }
}

std::vector<SmartRule> sortedRules(CliContext& context) {
    auto rules = context.rules().rules().value();
    std::stable_sort(rules.begin(), rules.end(),
                     [](const SmartRule& a, const SmartRule& b) { return a.sortIndex < b.sortIndex; });
    return rules;
}

// Adds a rule whose id is new; replaces the one with the same id, as the editor's save does.
bool addOrUpdate(SmartRuleStore& store, SmartRule rule) {
    if (store.rule(rule.id)) {
        store.updateRule(rule);
        return false;
    }
    store.addRule(std::move(rule));
    return true;
}

void printRule(CliContext& context, const SmartRule& rule) {
    std::ostream& out = context.out();
    out << "id:          " << rule.id.uuidString() << "\n"
        << "name:        " << rule.name << "\n"
        << "enabled:     " << (rule.isEnabled ? "yes" : "no") << "\n"
        << "match:       " << label(rule.matchMode) << "\n"
        << "when:        " << rule.summary() << "\n"
        << "then:        " << (rule.actions.empty() ? ruleTexts::noActionsHint : rule.actionsSummary()) << "\n"
        << "stops:       " << (rule.stopsOnMatch ? "yes" : "no") << "\n"
        << "sort index:  " << rule.sortIndex << "\n";
}

void runPreview(CliContext& context, const SmartRule& rule) {
    auto recent = context.store().fetchPage(0, ClipQuery{}, ClipSortOrder::newest, kRulePreviewClipCount);
    RulePreview preview = previewRule(rule, recent);
    context.out() << preview.summary << "\n";
    Date now = context.now();
    for (const Clip& clip : preview.matches) context.out() << "  " << clipLine(clip, now, false, 0) << "\n";
}

void addRulesCommand(CLI::App& app, CliContext& context) {
    ListingCommand listing = addListingCommand(
        app, "rules", "Capture rules: list, show, add, enable, disable, delete, ...", "The rules in the order they run",
        [&context](bool json) {
        auto all = sortedRules(context);
        if (json) {
            Json array = Json::array();
            for (const SmartRule& rule : all) array.push_back(toJson(rule));
            printJson(context, array);
            return;
        }
        if (all.empty()) context.out() << "no rules\n";
        for (const SmartRule& rule : all)
            context.out() << rule.id.uuidString().substr(0, kShownIDLength) << "  " << (rule.isEnabled ? "on " : "off")
                          << "  " << rule.name << "  (" << rule.summary() << ")\n";
        });
    CLI::App* rules = listing.command;

    auto shown = std::make_shared<std::string>();
    CLI::App* show = rules->add_subcommand("show", "One rule, in words or (--json) in its stored form");
    show->add_option("rule", *shown, "Name, id or unique id prefix")->required();
    show->callback([&context, shown, json = listing.json] {
        const SmartRule& rule = resolveRule(context, *shown);
        if (*json) {
            printJson(context, toJson(rule));
        } else {
            printRule(context, rule);
        }
    });

    auto added = std::make_shared<std::string>();
    CLI::App* add = rules->add_subcommand("add", "Add one rule in its stored JSON form (a rule with its id is replaced)");
    add->add_option("file", *added, "A JSON file, or '-' for stdin")->required();
    add->callback([&context, added] {
        SmartRule rule = ruleFromText(readInput(context, *added), *added);
        bool isNew = addOrUpdate(context.rules(), rule);
        context.out() << (isNew ? "added " : "replaced ") << rule.id.uuidString() << "\n";
        if (rule.isEnabled && rule.actions.empty()) context.err() << "note: " << ruleTexts::noActionsHint << "\n";
    });

    for (bool enables : {true, false}) {
        auto target = std::make_shared<std::string>();
        CLI::App* command = rules->add_subcommand(enables ? "enable" : "disable",
                                                  enables ? "Switch a rule on" : "Switch a rule off");
        command->add_option("rule", *target, "Name, id or unique id prefix")->required();
        command->callback([&context, target, enables] {
            context.rules().setRuleEnabled(resolveRule(context, *target).id, enables);
        });
    }

    auto deleted = std::make_shared<std::string>();
    CLI::App* remove = rules->add_subcommand("delete", "Delete a rule");
    remove->add_option("rule", *deleted, "Name, id or unique id prefix")->required();
    remove->callback([&context, deleted] { context.rules().deleteRule(resolveRule(context, *deleted).id); });

    auto imported = std::make_shared<std::string>();
    CLI::App* importCommand = rules->add_subcommand("import", "Add the rules of a JSON array (as `rules export` writes)");
    importCommand->add_option("file", *imported, "A JSON file, or '-' for stdin")->required();
    importCommand->callback([&context, imported] {
        DecodedRules decoded = decodeRules(readInput(context, *imported));
        if (!decoded.rules) badUsage(*imported + " is not a list of rules: " + decoded.error);
        long long added = 0, replaced = 0;
        for (const SmartRule& rule : *decoded.rules) (addOrUpdate(context.rules(), rule) ? added : replaced)++;
        context.out() << "added " << added << ", replaced " << replaced << "\n";
    });

    rules->add_subcommand("export", "Write every rule as one JSON array")->callback([&context] {
        context.out() << encodeRules(sortedRules(context)) << "\n";
    });

    auto previewed = std::make_shared<std::string>();
    CLI::App* preview = rules->add_subcommand("preview", "Test a rule (stored, or a JSON file) on the 20 newest clips");
    preview->add_option("rule", *previewed, "Name, id, unique id prefix, a JSON file, or '-'")->required();
    preview->callback([&context, previewed] {
        bool isFile = *previewed == "-" || std::filesystem::is_regular_file(*previewed);
        SmartRule rule = isFile ? ruleFromText(readInput(context, *previewed), *previewed)
                                : resolveRule(context, *previewed);
        runPreview(context, rule);
    });
}

// --- smart collections -----------------------------------------------------------------------------

void addSmartCommand(CLI::App& app, CliContext& context) {
    CLI::App* smart = addListingCommand(app, "smart", "Smart collections (saved filters): list, save, delete",
                                        "The smart collections", [&context](bool json) {
        const auto& all = context.rules().smartCollections().value();
        if (json) {
            Json array = Json::array();
            for (const SmartCollection& collection : all) array.push_back(toJson(collection));
            printJson(context, array);
            return;
        }
        for (const SmartCollection& collection : all) {
            context.out() << collection.id.uuidString().substr(0, kShownIDLength) << "  " << collection.name;
            if (!collection.searchText.empty()) context.out() << "  search \"" << collection.searchText << "\"";
            if (collection.kind) context.out() << "  kind " << rawValue(*collection.kind);
            if (collection.appBundleID) context.out() << "  app " << *collection.appBundleID;
            if (collection.onlyFavorites) context.out() << "  favourites";
            if (collection.onlyPinned) context.out() << "  pinned";
            if (collection.withinDays) context.out() << "  within " << *collection.withinDays << " days";
            context.out() << "\n";
        }
    }).command;

    auto saving = std::make_shared<std::pair<std::string, FilterOptions>>();
    CLI::App* save = smart->add_subcommand("save", "Save a filter as a smart collection (the same filters as list)");
    save->add_option("name", saving->first, "Its name")->required();
    addFilterOptions(*save, saving->second);
    save->callback([&context, saving] {
        if (trimmed(saving->first).empty()) badUsage("a smart collection needs a name");
        ClipQuery query = queryOf(context, saving->second);
        auto collection = makeSmartCollection(saving->first, query.text, LibraryFilter::all());
        collection->kind = query.kind;
        collection->appBundleID = query.appBundleID;
        collection->collectionID = query.collectionID;
        collection->onlyFavorites = query.onlyFavorites;
        collection->onlyPinned = query.onlyPinned;
        collection->withinDays = query.withinDays;
        context.rules().addSmartCollection(*collection);
        context.out() << collection->id.uuidString() << "\n";
    });

    auto deleted = std::make_shared<std::string>();
    CLI::App* remove = smart->add_subcommand("delete", "Delete a smart collection (no clip is touched)");
    remove->add_option("smart", *deleted, "Name, id or unique id prefix")->required();
    remove->callback([&context, deleted] {
        context.rules().deleteSmartCollection(resolveSmartCollection(context, *deleted).id);
    });
}

}  // namespace

const SmartCollection& resolveSmartCollection(CliContext& context, const std::string& argument) {
    return resolveNamed(context.rules().smartCollections().value(), argument, "smart collection");
}

void addRuleCommands(CLI::App& app, CliContext& context) {
    addRulesCommand(app, context);
    addSmartCommand(app, context);
}

}  // namespace tamarind::cli
