#include <fmt/format.h>

#include <string_view>

#include "tpk/kit/findings.h"
#include "tpk/verbs/command.h"
#include "tpk/verbs/syntax.h"

namespace quarn::tpk {
namespace {

/// `text` as troff prints it.
std::string Escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '\\':
        result += "\\e";
        break;
      case '-':
        result += "\\-";
        break;
      case '\'':
        result += "\\(aq";
        break;
      case '`':
        result += "\\(ga";
        break;
      case '~':
        result += "\\(ti";
        break;
      case '^':
        result += "\\(ha";
        break;
      default:
        result += c;
    }
  }
  return result.starts_with('.') ? "\\&" + result : result;
}

constexpr const char* kDescription = R"(.SH DESCRIPTION
A distribution kit carries templates and a description of them to the wizard that installs them.
.B tpk
makes kits, looks into them, checks and compares them, bundles them with the wizard, and installs them
without it.
.PP
Results go to standard output, everything else to standard error. With
.B \-\-json
remarks and errors go to standard output as well, and every line there is a JSON object with a
.I type
and the version of its
.IR schema ;
the last one, and only that one, has the type
.I result
or
.IR error .
.PP
.B install
replaces what is older than in the kit; all else is overwritten only with
.BR \-\-force ,
and appears under its name only when it is complete.
)";

constexpr const char* kManifest = R"(.SH MANIFEST
A manifest,
.IR kit.toml ,
tells
.B tpk pack
what to put into a kit.
.B tpk init
writes one to begin with. Its keys:
.TP
.B format = 1
The format of the manifest.
.TP
.B [kit] root, form, compression, time
The folder with the files, relative to the manifest; \(dqtable\(dq for products in several
languages or \(dqsingle\(dq for one in English; 0 to 9; one time for all files.
.TP
.B [[product]] language, name, provider, description
What the wizard shows in one language, and the file of the kit that it offers to open.
.TP
.B [files] include, exclude
Lists of patterns. Without
.I include
everything is taken; what
.I exclude
matches never is.
.TP
.B [[time]] files, time
Another time for the files that match the pattern; the last rule that matches counts.
.SS Patterns
.B ?
and
.B *
match anything but \(dq/\(dq,
.B **
matches that too, and
.B [a\-z]
one of some characters. A pattern without \(dq/\(dq is held against the last part of a name, in any
folder; one that ends in \(dq/\(dq means everything in that folder; every other one, and one that
starts with \(dq/\(dq, is held against the whole name.
)";

constexpr const char* kEnd = R"(.SH EXIT STATUS
.TP
.B 0
Everything is fine.
.TP
.B 1
The command line or the manifest is wrong, or a file is in the way and
.B \-\-force
was not given.
.TP
.B 2
A kit is damaged or dangerous, a folder is not what
.B verify \-\-against
expects, or kits differ and
.B diff \-\-exit\-code
was asked.
.TP
.B 3
Something could not be read or written.
.TP
.B 4
Cancelled by a signal. Nothing is left behind, and an installation is undone.
.SH ENVIRONMENT
.TP
.B SOURCE_DATE_EPOCH
Seconds since 1970: no file that
.B pack
takes gets a later time of its own, and
.B bundle
gives this time to what it makes; otherwise that of the newest file.
.TP
.B TMPDIR
Where temporary files go, if not to /var/tmp.
.TP
.B NO_COLOR
No colours, if it is set to anything.
.SH FILES
.TP
.I .tpk\-install
While an installation runs, in the folder that it installs into: what it moves aside, and a journal
of what was not there before. Where that folder is new, it lies in the nearest one above it that
exists, and where nothing can be written there, among the temporary files, under a longer name. After
an installation that was killed the next one into the same folder finds it, brings back what was
there and says so before it installs. A second installation into the same folder is refused while
the first one runs.
.TP
.I .tpk\-??????
What is being written and has no name yet. What a killed run has left is removed by the next run
that writes there.
.SH EXAMPLES
.nf
tpk init templates
tpk pack templates \-o quarn.tpk
tpk verify \-\-strict quarn.tpk
tpk bundle \-\-manifest templates/kit.toml \-\-target linux \-o templates\-setup
tpk diff old.tpk quarn.tpk
tpk plan quarn.tpk \-\-to ~/templates
tpk install quarn.tpk \-\-to ~/templates
.fi)";

std::string VerbSection(const VerbSyntax& verb) {
  std::string text = fmt::format(".SS \"tpk {}", Escaped(verb.name));
  for (const std::string& argument : verb.arguments) text += " " + Escaped(argument);
  text += "\"\n" + Escaped(verb.description) + ".\n";
  for (const OptionSyntax& option : verb.options) {
    text += ".TP\n.B ";
    for (std::size_t i = 0; i < option.names.size(); ++i) {
      text += (i == 0 ? "" : ", ") + Escaped(option.names[i]);
    }
    if (!option.value.empty()) text += "\\fR \\fI" + Escaped(option.value) + "\\fR";
    text += "\n" + Escaped(option.description) + ".\n";
  }
  return text;
}

std::string Page(const CLI::App& app) {
  std::string text = fmt::format(".TH TPK 1 \"\" \"tpk {}\" \"User Commands\"\n", QUARN_VERSION);
  text += ".SH NAME\ntpk \\- make, inspect and install distribution kits\n.SH SYNOPSIS\n";
  text += ".B tpk\n.I verb\n.RI [ argument \"] ... [\" option \"] ...\"\n";
  text += kDescription;
  text += ".SH VERBS\n";
  for (const VerbSyntax& verb : SyntaxOf(app)) text += VerbSection(verb);
  text += kManifest;
  text += ".SH CHECKS\nWhat\n.B verify\nand\n.B pack\nlook for.\n";
  for (const Check& check : kChecks) {
    text += fmt::format(".TP\n.B {}\n{}: {}\n", Escaped(check.code),
                        check.is_error ? "Error" : "Warning", Escaped(check.meaning));
  }
  return text + kEnd;
}

}  // namespace

void AddMan(CommandLine& line, CLI::App* verb) {
  SetAction(line, verb, [&line](Output& output) {
    const std::string page = Page(line.app);
    output.Text(page);
    output.Result("man", ExitCode::kFine, {{"page", page}}, "");
    return ExitCode::kFine;
  });
}

}  // namespace quarn::tpk
