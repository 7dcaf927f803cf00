#!/bin/sh
# Runs every test on a build that counts, and says what share of each folder's lines they ran; fails
# where it is less than it has to be. Which lines were not run stands in build/coverage.txt.
set -eu
CDPATH='' cd -- "$(dirname "$0")/.."

tools/install-packages.sh --test
mkdir -p build
cmake --preset coverage >build/coverage.log 2>&1 || {
    cat build/coverage.log
    exit 1
}
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
# One limits the size of files, that of the counters too, and cuts those of others.
ctest --preset coverage -E LimitedFiles
(
    cd build/coverage
    gcovr --root ../.. --filter '../../(base|core|zip|sign|batch|app)/' \
        --csv ../coverage.csv --txt ../coverage.txt app base batch core sign tests zip
)
awk -F, '
    NR == 1 { next }
    { folder = $1; sub("/.*", "", folder); lines[folder] += $2; run[folder] += $3 }
    END {
        count = split("base 95 core 95 zip 95 sign 85 batch 95 app 85", bounds, " ")
        for (i = 1; i < count; i += 2) {
            folder = bounds[i]
            share = lines[folder] ? 100 * run[folder] / lines[folder] : 0
            printf "%-6s%5.1f %% of %d lines (at least %d %%)\n",
                folder, share, lines[folder], bounds[i + 1]
            failed = failed || share < bounds[i + 1]
        }
        exit failed
    }' build/coverage.csv
