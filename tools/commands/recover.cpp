// recover: takes what can be trusted out of a damaged packet file, as io/recovery.cpp finds it.
#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "cli/command.h"
#include "cli/progress.h"
#include "io/file_window.h"
#include "io/input.h"
#include "io/output.h"
#include "io/recovery.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Writes the records of the packet file FILE that can be trusted, unchanged, and
tells on standard error what it leaves behind. FILE must be a regular file. The
output is whole for "verify", and a file that is whole already is copied.

In front of damage, a record is trusted when "verify" accepts it. Behind damage
it must be one that this library could have written: it has a message_id or a
message_type, no unknown field, and exactly the bytes that the library would
write for it. Three such records in a row, or fewer that end with the file, show
where records start again. recover also leaves behind
- a record in front of damage that was torn, so that the next records were
  appended to it: such a record begins in it and goes on beyond its end;
- a record in front of damage whose length is wrong: its bytes go on to where
  records start again;
- records in front of damage that have neither message_id nor message_type;
- more than 8 zero bytes where a record should begin, behind damage, or in front
  of it without such a record in between; with them a record that ends in zeros;
- bytes that would take too long, because nearly each seems to begin a record.
It does not notice bytes that changed within a text, a number or a body, a record
that is missing, or bytes that are missing within a record whose length happens
to end where another record does.

Exit code 0: FILE was whole; 4: something was left behind; 1: nothing is left.

Example:
  vynpkt recover packets.dat -o trusted.dat)";

class Recover : public Command {
public:
    explicit Recover(CLI::App& program)
        : Command(program, "recover", "Save the records of a damaged packet file", kNotes) {
        arguments().add_option("FILE", input_, "The packet file")->type_name("")->required();
    }

    ExitCode run() override {
        if (is_standard(input_)) {
            throw Failure(ExitCode::kUsage, input_, "standard input will not do; name a file");
        }
        if (!output().empty() && same_file(input_, output())) {
            throw Failure(ExitCode::kUsage, output(), "would lose what is left behind");
        }
        FileWindow file(input_);
        Output out(output());
        out.refuse_terminal();
        Progress progress(name(), file.size());
        const Recovered recovered = vynpkt::recover(
            file, progress, [&](std::string_view bytes) { out.write(bytes); },
            [&](uint64_t begin, uint64_t end) {
                tell_loss("left behind: offset " + std::to_string(begin) + ", length " +
                          std::to_string(end - begin));
            });
        if (recovered.left > 0) {
            sum_up(recovered);
        }
        out.commit();
        return recovered.left > 0 ? ExitCode::kLoss : ExitCode::kDone;
    }

private:
    void sum_up(const Recovered& recovered) const {
        if (recovered.entries == 0) {
            throw Failure(ExitCode::kRefused, input_, "nothing could be recovered");
        }
        tell_loss(std::to_string(recovered.entries) +
                  (recovered.entries == 1 ? " record" : " records") + " recovered, " +
                  std::to_string(recovered.left) + (recovered.left == 1 ? " byte" : " bytes") +
                  " left behind");
    }

    void tell_loss(const std::string& words) const { tell({ExitCode::kLoss, {input_}, words}); }

    std::string input_;
};

}  // namespace

CommandPtr make_recover(CLI::App& program) { return std::make_unique<Recover>(program); }

}  // namespace vynpkt
