// The option helper every handler uses: mandatory checks, help, and the one error path.
#include <gtest/gtest.h>

#include <vector>

#include "front/options/program_options_helper.h"
#include "support/child.h"

namespace mc = quelt::mail::postfix::mailrig_commands;
namespace po = boost::program_options;

namespace {

// A handler-shaped parse of `words` (the command word first); prints what it parsed.
ChildResult parseWords(std::vector<std::string> words)
{
    return runInChild([&] {
        mc::ProgramOptionsHelper options("remove a domain", "--remove-domain --domain-name=<domain>");
        options.add()("domain-name", po::value<std::string>(), "domain name", true)(
            "mailname", po::value<std::string>(), "mail name", true)("in-blocks", "size in blocks")(
            "quota", po::value<short>(), "quota");
        std::vector<char*> argv;
        for (auto& w : words)
            argv.push_back(w.data());
        options.parseOrExit(static_cast<int>(argv.size()), argv.data());
        std::printf("domain=%s mailname=%s blocks=%d\n", options.get<std::string>("domain-name").c_str(),
                    options.get<std::string>("mailname").c_str(), options.has("in-blocks") ? 1 : 0);
        return 0;
    });
}

const char* const kHelpStart = "remove a domain\nUsage: --remove-domain --domain-name=<domain>\n"
                               "Allowed options to remove a domain:\n";

TEST(ProgramOptionsHelper, ParsesLongShortAndSeparatedValues)
{
    const auto r = parseWords({"--remove-domain", "--domain-name=example.com", "--mailname", "info", "--in-blocks"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "domain=example.com mailname=info blocks=1\n");
}

TEST(ProgramOptionsHelper, LastDeclaredMandatoryOptionIsReportedFirst)
{
    const auto r = parseWords({"--remove-domain"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "mandatory option \"--mailname\" is not specified\n");
    // The message reaches stdout too (through quelt::uerr), ahead of the command help.
    EXPECT_EQ(r.out.rfind("mandatory option \"--mailname\" is not specified\n", 0), 0u) << r.out;
    EXPECT_NE(r.out.find(kHelpStart), std::string::npos) << r.out;
}

TEST(ProgramOptionsHelper, HelpWinsOverMissingMandatoryOptions)
{
    for (const char* help : {"--help", "-h"}) {
        const auto r = parseWords({"--remove-domain", "--domain-name=example.com", help});
        EXPECT_EQ(r.status, 0) << help;
        EXPECT_EQ(r.err, "") << help;
        EXPECT_EQ(r.out.rfind(kHelpStart, 0), 0u) << r.out;
        EXPECT_NE(r.out.find("domain name (mandatory)"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("-h [ --help ]"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("displays this help message"), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("size in blocks (mandatory)"), std::string::npos) << r.out;
    }
}

TEST(ProgramOptionsHelper, LibraryErrorsTakeTheSamePath)
{
    struct Case {
        std::vector<std::string> words;
        const char* message;
    };
    const Case cases[] = {
        {{"--remove-domain", "--domain=example.com", "--mailname=x"}, "unrecognised option '--domain=example.com'\n"},
        {{"--remove-domain", "--domain-name"}, "the required argument for option '--domain-name' is missing\n"},
        {{"--remove-domain", "--domain-name=a", "--mailname=b", "--quota=big"},
         "the argument ('big') for option '--quota' is invalid\n"},
        {{"--remove-domain", "--domain-name=a", "--mailname=b", "stray"}, "too many positional options have been specified on the command line\n"},
    };
    for (const auto& c : cases) {
        const auto r = parseWords(c.words);
        EXPECT_EQ(r.status, 1) << c.words[1];
        EXPECT_EQ(r.err, c.message) << c.words[1];
        EXPECT_NE(r.out.find(kHelpStart), std::string::npos) << c.words[1];
    }
}

}  // namespace
