#include "tools/manual.h"

#include <sstream>

namespace corvane_tool {

namespace {

// roff takes '-' for a hyphen, '\' for its own, and '.' or ''' at the start of a line for a
// request.
std::string Roff(const std::string& text) {
  std::string roff;
  bool is_line_start = true;
  for (const char c : text) {
    if (is_line_start && (c == '.' || c == '\'')) roff += "\\&";
    if (c == '\\') {
      roff += "\\e";
    } else if (c == '-') {
      roff += "\\-";
    } else {
      roff += c;
    }
    is_line_start = c == '\n';
  }
  return roff;
}

void AddOptions(const CLI::App& app, std::ostringstream* page) {
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_name(false, true).empty()) continue;
    *page << ".TP\n\\fB" << Roff(option->get_name(true, true)) << "\\fR\n"
          << Roff(option->get_description()) << "\n";
  }
}

void AddFooter(const CLI::App& app, std::ostringstream* page) {
  if (!app.get_footer().empty()) *page << ".PP\n.nf\n" << Roff(app.get_footer()) << "\n.fi\n";
}

// "-c,--config" as words.
std::string OptionWords(const CLI::App& app) {
  std::string words;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) words += " --" + name;
    for (const std::string& name : option->get_snames()) words += " -" + name;
  }
  return words;
}

}  // namespace

std::string ManPage(const CLI::App& app) {
  std::ostringstream page;
  page << ".TH CORVANE 1\n.SH NAME\ncorvane \\- " << Roff(app.get_description())
       << "\n.SH SYNOPSIS\n\\fBcorvane\\fR VERB [OPTIONS]\n.SH OPTIONS\n";
  AddOptions(app, &page);
  for (const CLI::App* verb : app.get_subcommands({})) {
    page << ".SH CORVANE " << Roff(verb->get_name()) << "\n"
         << Roff(verb->get_description()) << ".\n";
    AddOptions(*verb, &page);
    AddFooter(*verb, &page);
  }
  page << ".SH EXIT STATUS\n";
  AddFooter(app, &page);
  return page.str();
}

std::string BashCompletion(const CLI::App& app) {
  std::string verbs;
  std::string cases;
  for (const CLI::App* verb : app.get_subcommands({})) {
    verbs += " " + verb->get_name();
    cases += "    " + verb->get_name() + ") words=\"" + OptionWords(*verb).substr(1) + "\" ;;\n";
  }
  return "# Completion of the tool corvane for bash; made by: corvane completion\n"
         "_corvane() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} words\n"
         "  case ${COMP_WORDS[1]} in\n" +
         cases + "    *) words=\"" + OptionWords(app).substr(1) + verbs +
         "\" ;;\n"
         "  esac\n"
         "  [ \"$COMP_CWORD\" -eq 1 ] && words=\"" +
         OptionWords(app).substr(1) + verbs +
         "\"\n"
         "  case $current in\n"
         "    -*) mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\") ;;\n"
         "    *) if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
         "         mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "       else\n"
         "         mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "       fi ;;\n"
         "  esac\n"
         "}\n"
         "complete -o filenames -F _corvane corvane\n";
}

}  // namespace corvane_tool
