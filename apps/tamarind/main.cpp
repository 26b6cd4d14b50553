// The tamarind executable: wires the command line to the library's services.

#include <CLI/CLI.hpp>

#include <cstdio>

int main(int argc, char** argv) {
    CLI::App app{"Tamarind: a clipboard and screenshot history for Linux desktops.\n"
                 "Run without a command to start the desktop application.",
                 "tamarind"};
    app.set_version_flag("--version", "tamarind " TAMARIND_VERSION);
    CLI11_PARSE(app, argc, argv);

    std::fprintf(stderr, "tamarind: the desktop application is not built yet; see --help.\n");
    return 1;
}
