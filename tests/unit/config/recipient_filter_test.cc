// The rebuild of smtpd_recipient_restrictions keeps the admin's policy services in their old
// order, however the old list was written (each mode's fixed items, and a plain comma list
// with a policy service, are rows of the settings scenarios).
#include <gtest/gtest.h>

#include <list>
#include <string>

#include <boost/algorithm/string/join.hpp>

#include "config/settings/settings_manager.h"

namespace pf = quelt::mail::postfix;
using Filter = pf::SmtpdRecipientRestrictionsFilter;

namespace {

const std::string kNoRelay = "check_client_access pcre:/var/spool/postfix/quelt/no_relay.re";

std::string rebuilt(Filter::Mode mode, const std::string& current)
{
    std::list<std::string> items;
    Filter(mode, {"check_policy_service"})(current, items);
    return boost::algorithm::join(items, ", ");
}

TEST(RecipientRestrictions, PolicyServicesSurviveInTheirOrder)
{
    const std::string closed = "permit_mynetworks, " + kNoRelay + ", reject_unauth_destination, ";
    const struct {
        std::string current;
        std::string kept;
    } cases[] = {
        {"check_policy_service unix:private/a,check_policy_service   unix:private/b",
         "check_policy_service unix:private/a, check_policy_service   unix:private/b"},
        // Separated by blanks alone, the list is one comma piece.
        {"permit_mynetworks reject_rbl_client x check_policy_service unix:private/policy reject_unauth_destination",
         "check_policy_service unix:private/policy"},
        {"permit_mynetworks\n    check_policy_service\tunix:private/policy", "check_policy_service unix:private/policy"},
        // A braced argument stays whole, its commas included.
        {"permit_mynetworks, check_policy_service { inet:127.0.0.1:10031, timeout=10s }, reject",
         "check_policy_service { inet:127.0.0.1:10031, timeout=10s }"},
        {"permit_mynetworks check_policy_service { inet:127.0.0.1:10031, default_action=DUNNO } reject",
         "check_policy_service { inet:127.0.0.1:10031, default_action=DUNNO }"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(rebuilt(Filter::Closed, c.current), closed + c.kept) << c.current;
    // Names that only look alike are no policy services.
    EXPECT_EQ(rebuilt(Filter::Open, "check_policy_service_x unix:p, "
                                    "check_client_access hash:/etc/check_policy_service"),
              "permit, " + kNoRelay + ", reject");
}

}  // namespace
