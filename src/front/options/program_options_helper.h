// Each command handler's own options, help text and mandatory-option check, on top of
// Boost.Program_options.
#pragma once

#include <forward_list>
#include <ostream>
#include <string>

#include <boost/program_options.hpp>

namespace quelt::mail::postfix::mailrig_commands {

namespace po = boost::program_options;

class MissingMandatoryOption : public po::error {
public:
    explicit MissingMandatoryOption(const std::string& message) : po::error(message) {}
};

class ProgramOptionsHelper {
public:
    // Declarations chain: helper.add()("name", po::value<T>(), "text", true)("flag", "text");
    class OptionAppender {
    public:
        explicit OptionAppender(ProgramOptionsHelper* helper) : helper_(helper) {}
        // A flag.
        OptionAppender& operator()(const char* name, const char* description, bool mandatory = false);
        // An option with a value; `semantic` is owned by the option table from here on.
        OptionAppender& operator()(const char* name, const po::value_semantic* semantic,
                                   const char* description, bool mandatory = false);

    private:
        ProgramOptionsHelper* helper_;
    };

    // `description` heads the help ("remove a domain"); `usageLine` follows "Usage: ".
    ProgramOptionsHelper(const std::string& description, const std::string& usageLine);

    OptionAppender add() { return OptionAppender(this); }

    // Parses the words after the command word. "--help" prints the help and exits 0 before
    // mandatory options are checked; otherwise throws po::error (MissingMandatoryOption too).
    void parse(int argc, char* argv[]);

    // parse(), ending any command-line error the one way every handler does: the message on
    // quelt::uerr, the command help on standard output, exit status 1.
    void parseOrExit(int argc, char* argv[]);

    // Ends a command-line error the way parseOrExit does; for the checks a handler makes after
    // parsing (an option that only some values of another make mandatory).
    [[noreturn]] void optionError(const po::error& error) const;

    // Writes the command help and ends the process with `status`.
    [[noreturn]] void usage(int status, std::ostream& out) const;

    // The option table as the help prints it.
    const po::options_description& descriptions() const { return options_; }
    const po::variables_map& values() const { return values_; }
    bool has(const std::string& name) const { return values_.count(name) > 0; }
    template <class T>
    const T& get(const std::string& name) const
    {
        return values_[name].as<T>();
    }

private:
    po::options_description options_;
    po::variables_map values_;
    std::string description_;
    std::forward_list<std::string> mandatory_;
    std::string usageLine_;
};

}  // namespace quelt::mail::postfix::mailrig_commands
