#include "quillmere_bridge/options.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace bridge_tool {

namespace {

constexpr int kBadUsage = 2;

void addBridgeOption(CLI::App& app, Invocation& invocation) {
  app.add_option("--bridge", invocation.bridge,
                 "Bridge folder (default: $HOME/Library/Application Support/Quillmere/"
                 "reaper-bridge; without HOME, USERPROFILE on Windows, else the working folder)");
}

void addTimeoutOption(CLI::App& command, Invocation& invocation) {
  command
      .add_option(
          "--timeout", invocation.timeoutSeconds,
          "Seconds to wait for the answer (default 10); an unclaimed request is then taken back")
      ->check(CLI::PositiveNumber);
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
  Invocation invocation;
  CLI::App app{
      "Looks at the REAPER side of the Quillmere bridge and talks to it through its folder."};
  app.name("quillmere-bridge");
  app.require_subcommand(1);
  app.fallthrough();
  addBridgeOption(app, invocation);

  CLI::App* status = app.add_subcommand(
      "status", "Is the extension alive; what REAPER reports; what waits in each folder");
  status->add_flag("--json", invocation.json, "One JSON object, for scripts");

  CLI::App* spot = app.add_subcommand(
      "spot", "Place an audio file on REAPER's selected track at the edit cursor and wait");
  SpotOptions& s = invocation.spot;
  spot->add_option("FILE", s.file, "The audio file")->required();
  spot->add_option("--name", s.name, "Take name (default: the file's name without extension)");
  spot->add_option("--gain-db", s.gainDb, "Gain in dB, -60 to 12 (default 0)")
      ->check(CLI::Range(-60.0, 12.0));
  spot->add_option("--rate", s.rate, "Playback rate, 0.5 to 2 (default 1)")
      ->check(CLI::Range(0.5, 2.0));
  CLI::Option* offset =
      spot->add_option("--offset", s.offset, "Seconds into the file where the item starts")
          ->check(CLI::NonNegativeNumber);
  CLI::Option* length = spot->add_option("--length", s.length, "Seconds of the file the item shows")
                            ->check(CLI::NonNegativeNumber);
  offset->needs(length);
  length->needs(offset);
  spot->add_option("--project", s.project,
                   "The .rpp the request is made for; REAPER must have it open");
  spot->add_option("--item-id", s.itemId, "Your id of the item, echoed in the response")
      ->check(CLI::Range(std::int64_t{0}, std::int64_t{9007199254740992}));
  addTimeoutOption(*spot, invocation);
  spot->add_flag("--json", invocation.json, "Print the response document and the round trip");

  CLI::App* send = app.add_subcommand(
      "send", "Drop a request document you wrote, as it is, and wait for its response");
  send->add_option("DOCUMENT", invocation.document, "The request document")->required();
  addTimeoutOption(*send, invocation);
  send->add_flag("--json", invocation.json, "Print the response document and the round trip");

  CLI::App* log = app.add_subcommand("log", "The delivery log as a table");
  log->add_flag("--follow,-f", invocation.follow, "Keep printing lines as they are appended");
  log->add_option("--last,-n", invocation.last, "How many of the last lines (default 20)");
  log->add_flag("--json", invocation.json, "One JSON object per line, for scripts");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return {std::nullopt, 0};
  } catch (const CLI::CallForAllHelp&) {
    std::cout << app.help("", CLI::AppFormatMode::All);
    return {std::nullopt, 0};
  } catch (const CLI::ParseError& error) {
    std::cerr << "quillmere-bridge: " << error.what()
              << "\nRun quillmere-bridge --help for usage.\n";
    return {std::nullopt, kBadUsage};
  }
  if (status->parsed()) invocation.command = Command::Status;
  if (spot->parsed()) invocation.command = Command::Spot;
  if (send->parsed()) invocation.command = Command::Send;
  if (log->parsed()) invocation.command = Command::Log;
  return {invocation, 0};
}

}  // namespace bridge_tool
