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
#include "platform/x11/X11ClipboardWriter.h"
#include "platform/x11/X11KeySender.h"

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

// In the child: owns the clipboard until it is taken, then exits. Writes one byte to `ready`
// ('1' owned, '0' not) and closes it, so that the parent can leave.
[[noreturn]] void serve(ClipboardContent content, int ready) {
    ::setsid();
    int null = ::open("/dev/null", O_RDWR);
    for (int fd : {0, 1, 2}) ::dup2(null, fd);
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
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) refuse("cannot start the clipboard owner");
    context.out().flush();
    pid_t child = ::fork();
    if (child < 0) refuse("cannot start the clipboard owner");
    if (child == 0) {
        ::close(pipeFds[0]);
        serve(std::move(content), pipeFds[1]);
    }
    ::close(pipeFds[1]);
    char answer = '0';
    ssize_t got = ::read(pipeFds[0], &answer, 1);
    ::close(pipeFds[0]);
    if (got != 1 || answer != '1') {
        ::waitpid(child, nullptr, 0);
        refuse("could not take the clipboard of display " + std::string(std::getenv("DISPLAY")));
    }
}

// Copies, then types the paste keystroke into the window in front, once the keys the user still
// holds (from the shortcut that ran this) are up.
void runPaste(CliContext& context, const CopyOptions& options) {
    runCopy(context, options);
    PollMainLoop loop;
    auto opened = X11Connection::open(loop);
    auto* x11 = std::get_if<std::unique_ptr<X11Connection>>(&opened);
    if (!x11) refuse(std::get<std::string>(opened));
    (*x11)->setOnDisconnected([&loop] { loop.quit(); });
    auto created = X11KeySender::create(loop, **x11);
    auto* sender = std::get_if<std::unique_ptr<X11KeySender>>(&created);
    if (!sender) refuse(std::get<std::string>(created) + "; the clip was copied, paste it by hand");
    bool isSent = false;
    (*sender)->sendPaste(context.preferences().pasteKeystroke().value(),
                         [&](bool sent) {
                             isSent = sent;
                             loop.quit();
                         });
    loop.run();
    if (!isSent) refuse("the paste keystroke could not be typed; the clip was copied");
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
