// shortcuts, paste-slot and paste-next: the hotkeys and the pastes they make. While the app runs,
// changes go through it, so that it moves its grabs at once; without it they are written to the
// settings for its next start.

#include <ostream>

#include "cli/ClipFormat.h"
#include "cli/Commands.h"
#include "paste/PasteCoordinator.h"
#include "platform/qt/DBusControl.h"

namespace tamarind::cli {

namespace {

// The command line registers nothing: its KeyboardShortcuts only reads and writes the settings.
class NoHotKeys final : public HotKeys {
public:
    int registerHotKey(int, const Shortcut&, std::function<void()>) override { return -1; }
    void unregisterHotKey(int) override {}
};

// A name of the table, or a clip (by "clip.<UUID>", its id or a unique prefix), as stored.
std::string canonicalName(CliContext& context, const std::string& argument) {
    if (globalShortcutDescriptor(argument)) return argument;
    std::string id = argument.starts_with("clip.") ? argument.substr(5) : argument;
    if (id.size() < kMinimumIDPrefix)
        badUsage("no shortcut is named " + argument + "; see `tamarind shortcuts list`");
    return clipShortcutName(context.resolveClip(id));
}

std::optional<Shortcut> parseKeys(const std::string& keys) {
    auto shortcut = Shortcut::fromDescription(keys);
    if (!shortcut)
        badUsage("not a key combination: " + keys +
                 " (write it as Super+Ctrl+1, Ctrl+Alt+Down or Shift+F5: the modifiers Super, Ctrl, Alt and Shift, "
                 "then one key)");
    return shortcut;
}

// Through the app when it runs; true when it took the change.
bool changeInApp(const std::string& method, const QVariantList& arguments) {
    DBusControl::Reply reply = DBusControl::call(method, arguments);
    if (!reply.isAnswered) return false;
    if (!reply.value.empty()) refuse(reply.value);
    return true;
}

void change(CliContext& context, const std::string& name, std::optional<Shortcut> shortcut, bool isReset) {
    if (isReset ? changeInApp("ResetShortcut", {QString::fromStdString(name)})
                : changeInApp("SetShortcut", {QString::fromStdString(name),
                                              QString::fromStdString(shortcut ? shortcut->json() : "")}))
        return;
    NoHotKeys noHotKeys;
    KeyboardShortcuts shortcuts(context.defaults(), context.loop(), noHotKeys, declaredDefaultShortcut);
    // The slots first get their defaults, as the app's first start would give them, so that
    // this change isn't overwritten then.
    installSlotDefaults(shortcuts, context.defaults());
    if (isReset) shortcut = declaredDefaultShortcut(name);
    shortcuts.setShortcut(shortcut, name);
    if (auto clipID = clipIDOfShortcutName(name)) {
        ClipShortcutBindings bindings(context.defaults());
        shortcut ? bindings.insert(*clipID) : bindings.erase(*clipID);
    }
}

// What the running app says of each hotkey ("active", "taken", "unused"); empty without the app.
Json statesInApp() {
    DBusControl::Reply reply = DBusControl::call("ShortcutStates");
    if (!reply.isAnswered) return Json::object();
    return parseJson(reply.value).value_or(Json::object());
}

void list(CliContext& context, bool json) {
    Json states = statesInApp();
    auto stateOf = [&](const std::string& name) { return states.value(name, std::string()); };
    NoHotKeys noHotKeys;
    KeyboardShortcuts shortcuts(context.defaults(), context.loop(), noHotKeys, declaredDefaultShortcut);
    struct Row {
        std::string name, title, section;
        std::optional<Shortcut> shortcut;
    };
    std::vector<Row> rows;
    for (const ShortcutDescriptor& descriptor : globalShortcutDescriptors())
        rows.push_back({descriptor.name, descriptor.title, descriptor.section, shortcuts.getShortcut(descriptor.name)});
    // Before the app's first start the slots have the defaults it will give them.
    if (!context.defaults().boolValue(kSlotDefaultsInstalledKey))
        for (int index = 0; index < kPasteSlotCount; ++index)
            rows[globalShortcutDescriptors().size() - kPasteSlotCount + index].shortcut = slotDefaultShortcut(index);
    ClipShortcutBindings bindings(context.defaults());
    for (const Uuid& id : bindings.boundClipIDs()) {
        std::optional<Clip> clip = context.store().clip(id);
        rows.push_back({clipShortcutName(id), clip ? clip->displayTitle() : "(deleted clip)", "Clips",
                        shortcuts.getShortcut(clipShortcutName(id))});
    }
    if (json) {
        OrderedJson array = OrderedJson::array();
        for (const Row& row : rows) {
            OrderedJson item{{"name", row.name}, {"title", row.title}, {"section", row.section}};
            item["keys"] = row.shortcut ? OrderedJson(row.shortcut->description()) : OrderedJson(nullptr);
            if (row.shortcut) {
                item["carbonKeyCode"] = row.shortcut->carbonKeyCode;
                item["carbonModifiers"] = row.shortcut->carbonModifiers;
            }
            if (!stateOf(row.name).empty()) item["state"] = stateOf(row.name);
            array.push_back(std::move(item));
        }
        printJson(context, array);
        return;
    }
    std::size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.name.size());
    std::string section;
    for (const Row& row : rows) {
        if (row.section != section) {
            context.out() << (section.empty() ? "" : "\n") << row.section << "\n";
            section = row.section;
        }
        std::string keys = row.shortcut ? row.shortcut->description() : "none";
        std::string state = stateOf(row.name);
        std::string note = state == "taken" ? "  (held by another program)" : state == "unused" ? "  (not in use yet)" : "";
        context.out() << "  " << row.name << std::string(width - row.name.size() + 2, ' ') << keys
                      << std::string(keys.size() < 18 ? 18 - keys.size() : 1, ' ') << row.title << note << "\n";
    }
}

}  // namespace

void addShortcutCommands(CLI::App& app, CliContext& context) {
    ListingCommand shortcuts = addListingCommand(
        app, "shortcuts", "The global hotkeys: list, set, clear or reset them",
        "List every hotkey with its keys (Super is the Windows key)", [&context](bool json) { list(context, json); });

    auto name = std::make_shared<std::string>();
    auto keys = std::make_shared<std::string>();
    CLI::App* set = shortcuts.command->add_subcommand("set", "Give a hotkey new keys, or give a clip its own hotkey");
    set->add_option("name", *name, "A name from `tamarind shortcuts list`, or a clip id")->required();
    set->add_option("keys", *keys, "Keys such as Super+Ctrl+1, Ctrl+Alt+Down or Shift+F5")->required();
    set->callback([&context, name, keys] {
        std::optional<Shortcut> shortcut = parseKeys(*keys);
        change(context, canonicalName(context, *name), shortcut, false);
    });
    CLI::App* clear = shortcuts.command->add_subcommand("clear", "Take a hotkey's keys away (it stays cleared)");
    clear->add_option("name", *name, "A name from `tamarind shortcuts list`, or a clip id")->required();
    clear->callback([&context, name] { change(context, canonicalName(context, *name), std::nullopt, false); });
    CLI::App* reset = shortcuts.command->add_subcommand("reset", "Give a hotkey its default keys back");
    reset->add_option("name", *name, "A name from `tamarind shortcuts list`, or a clip id")->required();
    reset->callback([&context, name] { change(context, canonicalName(context, *name), std::nullopt, true); });

    auto slot = std::make_shared<int>(0);
    CLI::App* pasteSlot = app.add_subcommand(
        "paste-slot", "Paste the Nth newest clip into the window in front (what Super+Ctrl+N does)");
    pasteSlot->add_option("slot", *slot, "1 to " + std::to_string(kPasteSlotCount))
        ->required()
        ->check(CLI::Range(1, kPasteSlotCount));
    pasteSlot->callback([&context, slot] {
        // An empty slot is an error for a script, whoever would paste it.
        std::vector<Clip> newest = context.store().fetchPage(0, ClipQuery{}, ClipSortOrder::newest, kPasteSlotCount);
        if (*slot > static_cast<int>(newest.size())) refuse("No clip in slot " + std::to_string(*slot));
        if (DBusControl::call("PasteSlot", {*slot}).isAnswered) return;
        // No app: paste it from here, without the HUD.
        pasteClip(context, newest[*slot - 1].id.uuidString(), false);
    });
    app.add_subcommand("paste-next", "Paste one clip further back in history at each run (needs the app)")
        ->callback([] {
            DBusControl::Reply reply = DBusControl::call("PasteNext");
            if (!reply.isAnswered) refuse(reply.error + " (paste-next keeps its place in the running app)");
        });
}

}  // namespace tamarind::cli
