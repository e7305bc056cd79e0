// Each command handler's own options, help text and mandatory-option check.
#include "front/options/program_options_helper.h"

#include <cstdlib>
#include <iostream>

#include "runtime/uerr.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

constexpr unsigned kLineLength = 80;
const std::string kMandatorySuffix = " (mandatory)";

}  // namespace

ProgramOptionsHelper::OptionAppender& ProgramOptionsHelper::OptionAppender::operator()(
    const char* name, const char* description, bool mandatory)
{
    if (!mandatory) {
        helper_->options_.add_options()(name, description);
        return *this;
    }
    helper_->mandatory_.push_front(name);
    const std::string text = description + kMandatorySuffix;
    helper_->options_.add_options()(name, text.c_str());
    return *this;
}

ProgramOptionsHelper::OptionAppender& ProgramOptionsHelper::OptionAppender::operator()(
    const char* name, const po::value_semantic* semantic, const char* description, bool mandatory)
{
    if (!mandatory) {
        helper_->options_.add_options()(name, semantic, description);
        return *this;
    }
    helper_->mandatory_.push_front(name);
    const std::string text = description + kMandatorySuffix;
    helper_->options_.add_options()(name, semantic, text.c_str());
    return *this;
}

ProgramOptionsHelper::ProgramOptionsHelper(const std::string& description, const std::string& usageLine)
    : options_("Allowed options to " + description, kLineLength, kLineLength / 2),
      description_(description), usageLine_(usageLine)
{
}

void ProgramOptionsHelper::parse(int argc, char* argv[])
{
    options_.add_options()("help,h", "displays this help message");

    const int style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
    // An empty positional description makes a stray word an error instead of being ignored.
    const po::positional_options_description noPositional;
    po::store(po::command_line_parser(argc, argv).options(options_).positional(noPositional).style(style).run(),
              values_);
    po::notify(values_);

    if (values_.count("help"))
        usage(0, std::cout);

    for (const auto& name : mandatory_) {
        if (!values_.count(name))
            throw MissingMandatoryOption("mandatory option \"--" + name + "\" is not specified");
    }
}

void ProgramOptionsHelper::parseOrExit(int argc, char* argv[])
{
    try {
        parse(argc, argv);
    } catch (const po::error& e) {
        optionError(e);
    }
}

void ProgramOptionsHelper::optionError(const po::error& error) const
{
    quelt::uerr << error.what() << std::endl;
    usage(1, std::cout);
}

void ProgramOptionsHelper::usage(int status, std::ostream& out) const
{
    out << description_ << '\n' << "Usage: " << usageLine_ << '\n' << options_ << std::endl;
    std::exit(status);
}

}  // namespace quelt::mail::postfix::mailrig_commands
