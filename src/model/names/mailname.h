// Validation of a mailname (the local part of a mailbox address).
#pragma once

// 1 when `name` is 1 to 245 bytes of ASCII letters, digits and . - _ & + ' , that neither
// starts nor ends with "." nor holds "..", else 0 (also for null).
int is_mailname_valid(const char* name);
