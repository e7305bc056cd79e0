// The attachment store of a mailbox: the plain files under "<home>/@attachments" that the
// autoresponder sends along with its replies. Results: 0 success, -1 failure (printed through
// messlog2); a domain libidn cannot convert ends the process (status 1).
#pragma once

#include <string>

// `name` when it is one plain file name of the store: not empty, no "/", not "." or "..", no
// line break. Throws std::invalid_argument "invalid attachment file name '<name>'" otherwise.
std::string checkedAttachmentName(const std::string& name);

// Copies `sourceFile` into the store under `attachmentName` (replacing a file of that name)
// with mode 0644.
int add_attachment(const std::string& mailname, const std::string& domain, const std::string& sourceFile,
                   const std::string& attachmentName);

// Deletes the attachment; one that is not there counts as deleted.
int remove_attachment(const std::string& mailname, const std::string& domain, const std::string& attachmentName);

// Prints "<name>\t<size>\n" on standard output for each plain file of the store, by name; the
// whole path instead of the name with `fullName`, allocated 512-byte blocks times 512 instead of
// the length with `inBlocks`. An empty mailname ends the process (status 1).
int list_attachments(const std::string& mailname, const std::string& domain, bool inBlocks, bool fullName);

// list_attachments for every subdirectory of the domain root; a mailname without a store is
// reported and the listing goes on.
int list_all_attachments(const std::string& domain, bool inBlocks, bool fullName);
