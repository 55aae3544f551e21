// iqa: host programs that drive the library the way the camera host does, and let a QA engineer
// see what it computed and wrote.
#include <csignal>
#include <cstdio>

#include "tools/commands/Commands.h"

int main(int argc, char** argv) {
    // A full file must show as a failed write with its message, not end the program.
    signal(SIGXFSZ, SIG_IGN);
    CLI::App app(
        "iqa: drives the image-quality library as the camera host does, and shows what it "
        "computed and wrote.\nA camera root holds storage/emulated/0/DCIM/Camera (photos) and its "
        "cache folder (raw thumbnails).",
        "iqa");
    app.require_subcommand(1);
    int status = 0;
    for (const auto add :
         {iqa_tools::AddSampleCommand, iqa_tools::AddImportCommand, iqa_tools::AddRunCommand,
          iqa_tools::AddReportCommand, iqa_tools::AddCompareCommand, iqa_tools::AddInspectCommand,
          iqa_tools::AddExtractCommand, iqa_tools::AddAnomalyCommand, iqa_tools::AddRecoverCommand,
          iqa_tools::AddScanCommand}) {
        add(app, &status);
    }
    if (argc > 1 && argv[1][0] != '-' &&
        app.get_subcommands([&](CLI::App* c) { return c->check_name(argv[1]); }).empty()) {
        fprintf(stderr, "iqa: no command %s (see iqa --help)\n", argv[1]);
        return 2;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& usage) {
        fprintf(stderr, "iqa: %s (see iqa --help, or iqa COMMAND --help)\n", usage.what());
        return 2;
    } catch (const std::exception& failure) {
        fprintf(stderr, "iqa: %s\n", failure.what());
        return 1;
    }
    return status;
}
