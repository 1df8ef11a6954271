// The standard streams of the process, and the signals that end it.
#ifndef VYN_TOOLS_IO_PROCESS_H
#define VYN_TOOLS_IO_PROCESS_H

namespace vynpkt {

// Opens /dev/null in place of standard streams that are closed. Otherwise the next file to be
// opened would take the number of one, and get the text meant for it.
void occupy_standard_streams();

// Installs handlers that remove the temporaries when a signal ends the process. SIGPIPE ends it
// without a message.
void end_cleanly_on_signals();

// The temporaries to remove then. The text of the path must stay in place until it is forgotten.
void remember_temporary(const char* path);
void forget_temporary(const char* path);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_PROCESS_H
