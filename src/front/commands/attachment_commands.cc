// The attachment commands: add, remove and list the files the autoresponder sends along.
#include "front/commands/attachment_commands.h"

#include <cstdlib>
#include <string>

#include "front/options/program_options_helper.h"
#include "model/names/name_checks.h"
#include "runtime/uerr.h"
#include "storage/attachments.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

// The options naming one mailbox, all mandatory.
void addMailbox(ProgramOptionsHelper& options)
{
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "mailname", po::value<std::string>(), "mailname", true);
}

// A choice between --mailname and --mail-all gone wrong: the message, the options and the usage
// on the error stream, status 1.
[[noreturn]] void wrongChoice(const ProgramOptionsHelper& options, const char* usageLine, const char* message)
{
    quelt::uerr << message << '\n' << options.descriptions() << '\n' << "Usage: " << usageLine << std::endl;
    std::exit(1);
}

}  // namespace

int addAttachment(int argc, char* argv[])
{
    ProgramOptionsHelper options("add an attachment",
                                 "--add-attachment --domain-name=<domain_name> --mailname=<mail_name> "
                                 "--file-name=<full_file_name> --attachment-file-name=<attachment_file_name>");
    addMailbox(options);
    options.add()("file-name", po::value<std::string>(), "uploaded file name", true)(
        "attachment-file-name", po::value<std::string>(), "attachment file name", true);
    options.parseOrExit(argc, argv);

    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    const std::string mailname = quelt::names::checkedMailname(options.get<std::string>("mailname"));
    const std::string name = checkedAttachmentName(options.get<std::string>("attachment-file-name"));
    return add_attachment(mailname, domain, options.get<std::string>("file-name"), name) == 0 ? 0 : 1;
}

int removeAttachment(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove an attachment",
                                 "--remove-attachment --domain-name=<domain_name> --mailname=<mail_name> "
                                 "--attachment-file-name=<attachment_file_name>");
    addMailbox(options);
    options.add()("attachment-file-name", po::value<std::string>(), "attachment file name", true);
    options.parseOrExit(argc, argv);

    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    const std::string mailname = quelt::names::checkedMailname(options.get<std::string>("mailname"));
    const std::string name = checkedAttachmentName(options.get<std::string>("attachment-file-name"));
    return remove_attachment(mailname, domain, name) == 0 ? 0 : 1;
}

int listAttachments(int argc, char* argv[])
{
    const char* const usageLine =
        "--list-attachments [--in-blocks] [--fullname] --domain-name=<domain_name> "
        "(--mailname=<mail_name>|--mail-all)";
    ProgramOptionsHelper options("list attachments", usageLine);
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "mailname", po::value<std::string>(), "mailname")(
        "mail-all", "report attachments for all mailnames (false by default)")(
        "in-blocks", "report in blocks rather than bytes (false by default)")(
        "fullname", "report full attachment paths (false by default)");
    options.parseOrExit(argc, argv);
    if (options.has("mailname") && options.has("mail-all"))
        wrongChoice(options, usageLine, "you should not use --mailname and --mail-all together");
    if (!options.has("mailname") && !options.has("mail-all"))
        wrongChoice(options, usageLine, "neither --mailname nor --mail-all are specified");

    const bool inBlocks = options.has("in-blocks");
    const bool fullName = options.has("fullname");
    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    if (options.has("mail-all"))
        return list_all_attachments(domain, inBlocks, fullName) == 0 ? 0 : 1;
    // An empty mailname is the listing's own error to report.
    std::string mailname = options.get<std::string>("mailname");
    if (!mailname.empty())
        mailname = quelt::names::checkedMailname(mailname);
    return list_attachments(mailname, domain, inBlocks, fullName) == 0 ? 0 : 1;
}

}  // namespace quelt::mail::postfix::mailrig_commands
