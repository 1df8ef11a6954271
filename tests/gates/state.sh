#!/usr/bin/env bash
# state.sh OBJECT...: the variables that calls in several threads share are those below, each atomic
# or with a lock. The thread sanitizer does not see what json-c or libcrypto write into any other.
set -euo pipefail
shared=$(objdump -tC "$@" | grep -E ' O \.t?(bss|data)' | grep -vF ' .data.rel.ro' |
    sed -E 's/.*\t[0-9a-f]+ +(\.hidden )?//' | grep -v '^DW\.ref\.\|^std::__ioinit$' |
    LC_ALL=C sort)
diff - <(printf '%s\n' "$shared") <<'EXPECTED'
(anonymous namespace)::initial_message_id_
(anonymous namespace)::log_level
generate_unique_trans_id::count
generate_unique_trans_id::initial_trans_id_
generate_unique_trans_id::trans_id_lock
EXPECTED
