# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# The tests of the real libusb on the kernel's bus, many unplugs, and the tables that only the kernel can read.

check real_usb_test 'the tests through the real libusb'
real_usb_test() {
    local test tests=0
    export VQD_TEST_BUS=kernel
    # A process for each test, because the library's state is global
    while read -r test; do
        tests=$((tests + 1))
        ends 0 "$build/real_usb_test" --gtest_filter="$test"
    done < <("$build/real_usb_test" --gtest_list_tests | awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }')
    [[ $tests -gt 0 ]] || fail "no tests"
}

check unplugs '100 unplugs of two streaming cameras with shortened waits: both come back, memory and open files stay'
unplugs() {
    ends 0 env VQD_TEST_BUS=kernel kernel_soak 100
    mentions err '^10[01] disconnects, '
}

check direct 'vqd table backup --direct brings back the tables that libusb cannot read'
direct() {
    local table
    for table in wiggling=3840 wiggling-b=8192 fppn=12288 fppn-4x4=9600; do
        seq 1000000 | head -c "${table#*=}" >in.bin 2>/dev/null
        ends 0 plugged --table "${table%=*}=in.bin" -- vqd table backup "${table%=*}" out.bin --direct --force
        cmp in.bin out.bin || fail "${table%=*} is not what the camera holds"
    done
}
