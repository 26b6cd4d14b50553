// copy: puts a clip on the clipboard without the app, as xclip does: a background child owns
// the clipboard and serves it until another program takes it.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

#include "cli/Commands.h"
#include "foundation/Files.h"
#include "foundation/PollMainLoop.h"
#include "foundation/Text.h"
#include "library/FileBookmark.h"
#include "platform/x11/X11ClipboardWriter.h"

namespace tamarind::cli {

namespace {

ClipboardContent contentOf(CliContext& context, const Clip& clip, bool isPlain) {
    ClipboardContent content;
    ClipKind kind = clip.clipKind();
    if (kind == ClipKind::image || kind == ClipKind::screenshot) {
        std::optional<std::string> bytes;
        if (clip.blobFilename) bytes = readWholeFile(context.store().blobStore().url(*clip.blobFilename)).bytes;
        if (!bytes && clip.fullImageData) bytes = stringFromData(*clip.fullImageData);
        if (!bytes) refuse("the image of clip " + clip.id.uuidString().substr(0, kShownIDLength) + " is gone");
        content.image = dataFromString(*bytes);
        content.imageExtension = clip.blobFilename && clip.blobFilename->ends_with(".tiff") ? "tiff" : "png";
        return content;
    }
    if (clip.fileBookmarks) {
        content.files = decodeFileBookmarks(*clip.fileBookmarks);
        std::vector<std::string> paths;
        for (const FileURL& file : content.files) paths.push_back(file.path);
        content.text = join(paths, "\n");
        return content;
    }
    content.text = clip.text ? clip.text : clip.urlString ? clip.urlString : clip.hexColor;
    if (!isPlain) {
        content.html = clip.htmlString;
        content.rtf = clip.richTextData;
    }
    if (!content.text && !content.html && !content.rtf)
        refuse("clip " + clip.id.uuidString().substr(0, kShownIDLength) + " has nothing to copy");
    return content;
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

void runCopy(CliContext& context, const std::string& argument, bool isPlain) {
    Clip clip = *context.store().clip(context.resolveClip(argument));
    ClipboardContent content = contentOf(context, clip, isPlain);
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

}  // namespace

void addCopyCommand(CLI::App& app, CliContext& context) {
    auto id = std::make_shared<std::string>();
    auto plain = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(
        "copy", "Put a clip on the clipboard (a background process serves it until something else is copied)");
    command->add_option("id", *id, "Clip id or unique prefix")->required();
    command->add_flag("--plain", *plain, "Text only, without its HTML or RTF");
    command->callback([&context, id, plain] { runCopy(context, *id, *plain); });
}

}  // namespace tamarind::cli
