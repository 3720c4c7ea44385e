// SPDX-License-Identifier: MIT
#include "Tools/vesk/ManualPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

// Roff reads backslashes everywhere, hyphens as typographic ones, and dots and quotes at the start of a line
// as requests.
std::string escaped(std::string_view text) {
  std::string result;
  bool lineStart = true;
  for (const char character : text) {
    if (character == '\\') {
      result += "\\e";
    } else if (character == '-') {
      result += "\\-";
    } else {
      if (lineStart && (character == '.' || character == '\'')) result += "\\&";
      result += character;
    }
    lineStart = character == '\n';
  }
  return result;
}

// Keeps line breaks where there are any.
std::string verbatim(std::string_view text) {
  if (text.find('\n') == std::string_view::npos) return escaped(text) + '\n';
  return ".nf\n" + escaped(text) + "\n.fi\n";
}

bool isHelp(const CLI::Option& option) {
  return option.get_name(false, true).find("--help") != std::string::npos;
}

std::string optionText(const CLI::Option& option) {
  std::string name = option.get_name(option.get_positional(), true);
  std::replace(name.begin(), name.end(), ',', ' ');
  const bool takesValue = !option.get_positional() && option.get_items_expected_max() > 0;
  return fmt::format(".TP\n.B {}{}\n{}\n", escaped(name),
                     takesValue ? " " + escaped(option.get_type_name()) : "",
                     escaped(option.get_description()));
}

std::string usage(const CLI::App& command, const std::string& path) {
  std::string text = path;
  for (const CLI::Option* option : command.get_options()) {
    if (isHelp(*option)) continue;
    const std::string name = option->get_name(option->get_positional());
    const bool takesValue = !option->get_positional() && option->get_items_expected_max() > 0;
    const std::string shown = takesValue ? name + ' ' + option->get_type_name() : name;
    text += option->get_required() ? ' ' + shown : " [" + shown + ']';
  }
  return text;
}

// What a command says beyond its options, without the exit codes that all of them repeat.
std::string remarks(const CLI::App& command) {
  std::string text = command.get_footer();
  const std::size_t codes = text.find(kExitCodesHelp);
  if (codes != std::string::npos) text.erase(codes);
  text.erase(text.find_last_not_of("\n ") + 1);
  return text;
}

// A section for the command, or for each of its own subcommands where it has any. `path` is how it is called.
std::string commandText(const CLI::App& command, const std::string& path) {
  if (command.get_group().empty()) return {};
  const auto subcommands = command.get_subcommands(nullptr);
  if (!subcommands.empty()) {
    std::string text;
    for (const CLI::App* subcommand : subcommands) {
      text += commandText(*subcommand, path + ' ' + subcommand->get_name());
    }
    return text;
  }
  std::string text =
      fmt::format(".SS {}\n{}.\n", escaped(usage(command, path)), escaped(command.get_description()));
  for (const CLI::Option* option : command.get_options()) {
    if (!isHelp(*option)) text += optionText(*option);
  }
  if (const std::string more = remarks(command); !more.empty()) text += ".PP\n" + verbatim(more);
  return text;
}

}  // namespace

std::string manualPage(const CLI::App& app, const std::string& version) {
  std::string text = fmt::format(".TH VESK 1 \"\" \"vesk {}\" \"User Commands\"\n", escaped(version));
  text += fmt::format(".SH NAME\nvesk \\- {}\n", escaped("per-application volume and system monitor"));
  text += ".SH SYNOPSIS\n.B vesk\n.I COMMAND\n[\\fIARGUMENTS\\fR]\n";
  text += ".SH COMMANDS\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    text += commandText(*command, "vesk " + command->get_name());
  }
  text += ".SH OPTIONS\n";
  for (const CLI::Option* option : app.get_options()) text += optionText(*option);
  std::string codes = kExitCodesHelp;
  codes.erase(0, codes.find('\n') + 1);
  text += ".SH EXIT STATUS\n" + verbatim(codes);
  text += fmt::format(".SH ENVIRONMENT\n.TP\n.B NO_COLOR\n{}\n",
                      escaped("When set to anything, nothing is printed in colour."));
  return text;
}

}  // namespace monitor::vesk
