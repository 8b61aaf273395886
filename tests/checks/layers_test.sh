#!/usr/bin/env bash
# The layer check must find what is planted, and nothing else. Usage: layers_test.sh CHECK_LAYERS
set -euo pipefail
check=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

plant() {  # FILE TEXT
    mkdir -p "$tree/$(dirname "$1")"
    printf '%s\n' "$2" >"$tree/$1"
}

base() {
    rm -rf "${tree:?}"/*
    plant include/oru/image.hpp '#include <cstdint>'
    plant include/utils/Clock.hpp '#include <time.h>'
    plant include/logging/log.hpp '#include <fmt/core.h>'
    plant include/collaborators/RLXVideo.hpp '#include "oru/image.hpp"'
    plant src/oru_koruone/grab.cpp '#include "collaborators/RLXVideo.hpp"'
    plant src/coding/Decoder.hpp '#include <libavcodec/avcodec.h>'
    plant src/backends/rlx/Reader.hpp '#include "coding/Decoder.hpp"'
    plant src/backends/stream/Sender.hpp '#include <srt/srt.h>'
    plant src/compose/factory.cpp '#include "backends/rlx/Reader.hpp"'
    plant examples/first.cpp '#include "oru/image.hpp"'
    plant apps/koruone/main.cpp '#include <CLI/CLI.hpp>'
    plant tests/unit/all_test.cpp '#include "backends/stream/Sender.hpp"'
}

expect() {  # STATUS NAME
    local status=0
    "$check" "$tree" >"$tree.out" 2>&1 || status=$?
    if [ "$status" != "$1" ]; then
        echo "FAIL $2: exit $status instead of $1"
        sed 's/^/    /' "$tree.out"
        failures=$((failures + 1))
    else
        echo "ok   $2"
    fi
    rm -f "$tree.out"
}

refuse() {  # NAME FILE TEXT
    base
    plant "$2" "$3"
    expect 1 "$1"
}

base
expect 0 'the order as it should be'
refuse 'upwards: types include logging' include/oru/image.hpp '#include "logging/log.hpp"'
refuse 'upwards with blanks' include/utils/Clock.hpp '  #  include   "collaborators/RLXVideo.hpp"'
refuse 'the core sees a backend' src/oru_koruone/grab.cpp '#include "backends/rlx/Reader.hpp"'
refuse 'the core sees the coding' src/oru_koruone/grab.cpp '#include "coding/Decoder.hpp"'
refuse 'the coding sees a backend' src/coding/Decoder.hpp '#include "backends/rlx/Reader.hpp"'
refuse 'a backend sees the core' src/backends/rlx/Reader.hpp '#include "oru_koruone/grab.cpp"'
refuse 'a backend sees another' src/backends/rlx/Reader.hpp '#include "backends/stream/Sender.hpp"'
refuse 'the tool names a backend' apps/koruone/main.cpp '#include "backends/stream/Sender.hpp"'
refuse 'the tool leaves the public face' apps/koruone/main.cpp '#include "utils/Clock.hpp"'
refuse 'what programs share knows one of them' apps/shared/report.cpp '#include "koruone/main.cpp"'
refuse 'an example leaves the public face' examples/first.cpp '#include "utils/Clock.hpp"'
refuse 'code includes the tests' src/compose/factory.cpp '#include "unit/all_test.cpp"'
refuse 'a way round by dots' src/oru_koruone/grab.cpp '#include "../backends/rlx/Reader.hpp"'
refuse 'a public header with Eigen' include/oru/image.hpp '#include <Eigen/Core>'
refuse 'a public header with fmt' include/oru/image.hpp '#include <fmt/core.h>'
refuse 'a public header with CUDA' include/oru/image.hpp '#include <cuda_runtime.h>'
# Each library rule, broken where it is easiest to break.
refuse 'the logging library elsewhere' src/oru_koruone/grab.cpp '#include <spdlog/spdlog.h>'
refuse 'the other logging library elsewhere' src/oru_koruone/grab.cpp '#include <quill/Logger.h>'
refuse 'the formatting library in the seam' include/oru_input/mcu/IMUPacket.hpp '#include <fmt/core.h>'
refuse 'linear algebra below the seam' include/utils/Clock.hpp '#include <Eigen/Core>'
refuse 'the INI library in a backend' src/backends/rlx/Reader.hpp '#include <SimpleIni.h>'
refuse 'the codec library in the core' src/oru_koruone/grab.cpp '#include <libavcodec/avcodec.h>'
refuse 'the scaling library in the core' src/oru_koruone/grab.cpp '#include <libswscale/swscale.h>'
refuse 'the codec library in a backend' src/backends/rlx/Reader.hpp '#include <libavcodec/avcodec.h>'
refuse 'the network library in another backend' src/backends/rlx/Reader.hpp '#include <srt/srt.h>'
refuse 'the transport stream library in another backend' src/backends/rlx/Reader.hpp '#include <bitstream/mpeg/ts.h>'
refuse 'the download library in another backend' src/backends/rlx/Reader.hpp '#include <curl/curl.h>'
refuse 'CUDA in another backend' src/backends/rlx/Reader.hpp '#include <cuda_runtime.h>'
refuse 'vector instructions in the core' src/oru_koruone/grab.cpp '#include <hwy/highway.h>'
refuse 'OpenCV outside interop' src/compose/factory.cpp '#include <opencv2/core.hpp>'
refuse 'the option parser in the library' src/compose/factory.cpp '#include <CLI/CLI.hpp>'
refuse 'the image file library in the library' src/compose/factory.cpp '#include <png.h>'

refuse 'a folder without a layer' src/misc/helper.cpp '#include <vector>'
base
sed -i '1i #include "tables/tables.hpp"' "$tree/include/utils/Clock.hpp"
plant include/tables/tables.hpp '#include <array>'
expect 1 'sideways: utils include tables'

# Rooms of a backend, and the size of a folder.
refuse_room() {  # NAME FILE INCLUDED
    base
    plant src/backends/stream/wire/records.hpp '#include <vector>'
    plant src/backends/stream/sender/StreamSender.hpp '#include "backends/stream/wire/records.hpp"'
    plant src/backends/stream/receiver/StreamReceiver.hpp '#include "backends/stream/stream_factory.hpp"'
    plant src/backends/stream/stream_factory.hpp '#include <memory>'
    expect 0 "before: $1"
    plant "$2" "#include \"$3\""
    expect 1 "$1"
}
refuse_room 'a lower room sees a higher one' src/backends/stream/wire/records.hpp backends/stream/sender/StreamSender.hpp
refuse_room 'neighbouring rooms see each other' src/backends/stream/sender/StreamSender.hpp \
    backends/stream/receiver/StreamReceiver.hpp
refuse_room 'a room sees what stands before the rooms' src/backends/stream/wire/records.hpp backends/stream/Sender.hpp
base
for number in $(seq 20); do plant "src/kit/part_$number.cpp" '#include <vector>'; done
plant src/kit/part_1.hpp '#include <vector>'
expect 0 'twenty units in a folder'
plant src/kit/part_21.cpp '#include <vector>'
expect 1 'twenty-one units in a folder'

echo "$failures failed"
exit $((failures > 0))
