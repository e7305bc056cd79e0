// The attachment commands: add, remove and list the files the autoresponder sends along.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addAttachment(int argc, char* argv[]);
int removeAttachment(int argc, char* argv[]);
int listAttachments(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
