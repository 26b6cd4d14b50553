// copy: puts a clip on the clipboard without the app, as xclip does: a background child owns
// the clipboard and serves it until another program takes it.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

#include "cli/Commands.h"
#include "foundation/PollMainLoop.h"
#include "foundation/Text.h"
#include "paste/ClipActions.h"
#include "paste/PasteService.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11ClipboardWriter.h"
#include "platform/x11/X11KeySender.h"
#include "platform/x11/X11Permissions.h"
#include "platform/x11/X11Workspace.h"

namespace tamarind::cli {

namespace {

struct CopyOptions {
    std::string id;
    bool isPlain = false;
    std::string transform = "plain";
    std::optional<std::string> colorFormat;
};

ClipboardContent contentOf(CliContext& context, Clip clip, const CopyOptions& options) {
    // "Copy as": a colour in the notation asked for, or in the one the settings prefer.
    if (clip.clipKind() == ClipKind::color && clip.hexColor) {
        ColorFormat format = options.colorFormat ? colorFormatOrHex(*options.colorFormat)
                                                 : context.preferences().preferredColorFormat().value();
        if (auto rendered = render(format, *clip.hexColor)) clip.text = *rendered;
    }
    if (options.isPlain) {
        clip.htmlString.reset();
        clip.richTextData.reset();
    }
    auto content = copyContent(clip, *copyTransformFromRawValue(options.transform), context.store().blobStore());
    if (!content) refuse("clip " + clip.id.uuidString().substr(0, kShownIDLength) + " has nothing to copy");
    // A file clip's paths as text too, for terminals.
    if (!content->files.empty() && !content->text) {
        std::vector<std::string> paths;
        for (const FileURL& file : content->files) paths.push_back(file.path);
        content->text = join(paths, "\n");
    }
    return *content;
}

// A child that owns the clipboard after this process leaves, and the one byte it answered.
struct ClipboardOwner {
    pid_t pid = -1;
    std::optional<char> answer;  // none when it ended without one
};

// Runs `serve` in a child of its own session with its output on /dev/null, and waits for the byte
// it writes to the descriptor it is given.
ClipboardOwner startClipboardOwner(CliContext& context, const std::function<void(int ready)>& serve) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) refuse("cannot start the clipboard owner");
    context.out().flush();
    pid_t child = ::fork();
    if (child < 0) refuse("cannot start the clipboard owner");
    if (child == 0) {
        ::close(pipeFds[0]);
        ::setsid();
        int null = ::open("/dev/null", O_RDWR);
        for (int fd : {0, 1, 2}) ::dup2(null, fd);
        serve(pipeFds[1]);
        ::_exit(1);
    }
    ::close(pipeFds[1]);
    char answer = 0;
    ssize_t got = ::read(pipeFds[0], &answer, 1);
    ::close(pipeFds[0]);
    return {child, got == 1 ? std::optional<char>(answer) : std::nullopt};
}

// In the child: owns the clipboard until it is taken, then exits. Writes one byte to `ready`
// ('1' owned, '0' not) and closes it, so that the parent can leave.
[[noreturn]] void serve(ClipboardContent content, int ready) {
    PollMainLoop loop;
    auto opened = X11Connection::open(loop);
    auto* x11 = std::get_if<std::unique_ptr<X11Connection>>(&opened);
    bool isOwner = false;
    std::optional<X11ClipboardWriter> writer;
    if (x11) {
        (*x11)->setOnDisconnected([&loop] { loop.quit(); });
        writer.emplace(**x11);
        writer->setOnLost([&loop] { loop.quit(); });
        isOwner = writer->write(std::move(content));
    }
    char answer = isOwner ? '1' : '0';
    [[maybe_unused]] ssize_t written = ::write(ready, &answer, 1);
    ::close(ready);
    if (isOwner) loop.run();
    ::_exit(isOwner ? 0 : 1);
}

void runCopy(CliContext& context, const CopyOptions& options) {
    Clip clip = *context.store().clip(context.resolveClip(options.id));
    ClipboardContent content = contentOf(context, std::move(clip), options);
    if (!std::getenv("DISPLAY")) refuse("DISPLAY is not set: copying needs an X display");
    ClipboardOwner owner = startClipboardOwner(context, [&](int ready) { serve(std::move(content), ready); });
    if (owner.answer != '1') {
        ::waitpid(owner.pid, nullptr, 0);
        refuse("could not take the clipboard of display " + std::string(std::getenv("DISPLAY")));
    }
}

// What the child of a paste answers its parent with.
char outcomeByte(PasteOutcome outcome) { return static_cast<char>('0' + static_cast<int>(outcome)); }

// In the child: pastes through the service the app's hotkeys use (the richest form of each kind, a
// multi-clip joined with the separator in force, files as URLs, the keystroke once the shortcut's
// keys are up, the restore when it is set), answers the outcome on `ready`, then serves the
// clipboard until another program takes it. Never touches the store, which the parent owns.
[[noreturn]] void pasteAndServe(CliContext& context, const Clip& clip, bool isPlain, int ready) {
    PollMainLoop loop;
    auto answer = [&](char byte) {
        if (ready < 0) return;
        [[maybe_unused]] ssize_t written = ::write(ready, &byte, 1);
        ::close(ready);
        ready = -1;
    };
    auto opened = X11Connection::open(loop);
    auto* x11 = std::get_if<std::unique_ptr<X11Connection>>(&opened);
    if (!x11) {
        answer('x');
        ::_exit(1);
    }
    (*x11)->setOnDisconnected([&loop] { loop.quit(); });
    auto created = X11Clipboard::create(loop, **x11);
    auto* clipboard = std::get_if<std::unique_ptr<X11Clipboard>>(&created);
    if (!clipboard) {
        answer('x');
        ::_exit(1);
    }
    (*clipboard)->setOnLost([&loop] { loop.quit(); });
    // No desktop files: the paste needs the target's window, not its application's name.
    X11Workspace workspace(**x11);
    X11Permissions permissions(X11Permissions::isWaylandSessionNow());
    auto keySender = X11KeySender::create(loop, **x11);
    auto* keys = std::get_if<std::unique_ptr<X11KeySender>>(&keySender);
    if (keys) (*keys)->setKeystrokeSetting([&context] { return context.preferences().pasteKeystroke().value(); });
    PasteService paste(loop, PlatformForPaste{**clipboard, workspace, &permissions, keys ? keys->get() : nullptr},
                       context.store().blobStore(), context.preferences());
    paste.recordTargetApplication();
    bool isServing = false;
    paste.paste(clip, PasteService::Request{.asPlainText = isPlain}, [&](PasteOutcome outcome) {
        answer((keys || outcome != PasteOutcome::pasted) ? outcomeByte(outcome) : 'k');
        isServing = outcome != PasteOutcome::nothingToPaste;
        if (!isServing) loop.quit();
    });
    loop.run();
    ::_exit(isServing ? 0 : 1);
}

// As the hotkey pastes: the clip marked used, then pasted by a child process that keeps the
// clipboard afterwards, as `copy` does.
void runPaste(CliContext& context, const CopyOptions& options) {
    Clip clip = *context.store().clip(context.resolveClip(options.id));
    if (!std::getenv("DISPLAY")) refuse("DISPLAY is not set: pasting needs an X display");
    context.store().markUsed(clip.id, context.now());
    ClipboardOwner owner =
        startClipboardOwner(context, [&](int ready) { pasteAndServe(context, clip, options.isPlain, ready); });
    char answer = owner.answer.value_or('x');
    if (answer == 'x') {
        ::waitpid(owner.pid, nullptr, 0);
        refuse("could not take the clipboard of display " + std::string(std::getenv("DISPLAY")));
    }
    std::string id = clip.id.uuidString().substr(0, kShownIDLength);
    if (answer == 'k') refuse("the paste keystroke could not be typed; clip " + id + " was copied, paste it by hand");
    switch (static_cast<PasteOutcome>(answer - '0')) {
    case PasteOutcome::pasted: return;
    case PasteOutcome::nothingToPaste:
        ::waitpid(owner.pid, nullptr, 0);
        refuse("clip " + id + " has nothing to paste");
    case PasteOutcome::noTarget: refuse("no window to paste into; clip " + id + " was copied");
    case PasteOutcome::accessibilityMissing:
        refuse("this session lets no program type into other windows (Wayland); clip " + id +
               " was copied, paste it with Ctrl+V");
    }
}

}  // namespace

void pasteClip(CliContext& context, const std::string& id, bool isPlain) {
    CopyOptions options;
    options.id = id;
    options.isPlain = isPlain;
    runPaste(context, options);
}

void addCopyCommand(CLI::App& app, CliContext& context) {
    auto options = std::make_shared<CopyOptions>();
    CLI::App* command = app.add_subcommand(
        "copy", "Put a clip on the clipboard (a background process serves it until something else is copied)");
    command->add_option("id", options->id, "Clip id or unique prefix")->required();
    command->add_flag("--plain", options->isPlain, "Text only, without its HTML or RTF");
    command->add_option("--transform", options->transform, "plain, uppercase, lowercase, capitalized or trimmed")
        ->check(CLI::IsMember({"plain", "uppercase", "lowercase", "capitalized", "trimmed"}));
    command->add_option("--color-format", options->colorFormat,
                        "For a colour: hex, rgb, rgba, hsl, swiftUI, uiColor or cssVariable "
                        "(default: capture.preferredColorFormat)")
        ->check(CLI::IsMember({"hex", "rgb", "rgba", "hsl", "swiftUI", "uiColor", "cssVariable"}));
    command->callback([&context, options] { runCopy(context, *options); });

    auto pasting = std::make_shared<CopyOptions>();
    CLI::App* paste = app.add_subcommand(
        "paste", "Copy a clip and type the paste keystroke into the window in front (the setting paste.keystroke)");
    paste->add_option("id", pasting->id, "Clip id or unique prefix")->required();
    paste->add_flag("--plain", pasting->isPlain, "Text only, without its HTML or RTF");
    paste->callback([&context, pasting] { pasteClip(context, pasting->id, pasting->isPlain); });
}

}  // namespace tamarind::cli
