#!/usr/bin/env bash
# Opens a stored state directory with the client and uses every key in it: open-sample.sh LUMOKM SAMPLE
#
# The sample holds the state of one device with both instances, its properties, a message, and for
# every profile and instance NAME-KIND.key with what was made of the message then: NAME-KIND.sig, a
# signature or MAC, or NAME-KIND.enc, a ciphertext. "old" keys are of an older system and need an
# upgrade, "deleted" ones were deleted, the attestation roots are those of that state.
set -euo pipefail

lumokm=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
tar -C "$folder" -xzf "$2"
cd "$folder"
export LUMO_STATE_DIR=$folder/state LUMO_PROPERTIES=$folder/build.prop
failures=0

expect() {  # STATUS COMMAND...
    local wanted=$1 status=0
    shift
    "$@" >out 2>err || status=$?
    [ "$status" -eq "$wanted" ] && return
    echo "status $status instead of $wanted: LUMO_TRANSPORT=$LUMO_TRANSPORT $*"
    cat out err
    failures=$((failures + 1))
}
# What COMMAND KEY... writes must be the message.
decrypts() {
    rm -f plain
    expect 0 "${client[@]}" decrypt --key "$@" --out plain
    cmp -s plain message || { echo "$1 decrypts to something else"; failures=$((failures + 1)); }
}

gcm=(--mode gcm --padding none --mac-length 128)
cbc=(--mode cbc --padding pkcs7)
hmac=(--digest sha256 --app-id app --app-data data --in message)
ec=(--digest sha256 --app-id app --in message)
for profile in cbor legacy-4 legacy-3-encoding legacy-3; do
    export LUMO_TRANSPORT=sim:profile=$profile
    for instance in default strongbox; do
        client=("$lumokm")
        [ $instance = default ] || client+=(--strongbox)
        name=keys/$profile-$instance

        expect 0 "${client[@]}" verify --key $name-ec.key "${ec[@]}" --signature $name-ec.sig
        expect 0 "${client[@]}" sign --key $name-ec.key "${ec[@]}" --out sig
        expect 0 openssl dgst -sha256 -verify $name-ec.pem -signature sig message
        expect 0 "${client[@]}" export --key $name-ec.key --app-id app --out pem
        expect 0 cmp pem $name-ec.pem
        expect 0 "${client[@]}" verify --key $name-hmac.key "${hmac[@]}" --mac-length 256 \
            --signature $name-hmac.sig
        decrypts $name-gcm.key "${gcm[@]}" --in $name-gcm.enc
        [ ! -e $name-rsa.key ] ||
            decrypts $name-rsa.key --digest sha256 --padding oaep --in $name-rsa.enc
        decrypts $name-rollback.key "${cbc[@]}" --in $name-rollback.enc
        expect 3 "${client[@]}" decrypt --key $name-deleted.key "${cbc[@]}" --in $name-old.enc

        expect 3 "${client[@]}" decrypt --key $name-old.key "${cbc[@]}" --in $name-old.enc
        expect 0 "${client[@]}" upgrade --key $name-old.key --out new.key
        decrypts new.key "${cbc[@]}" --in $name-old.enc
        expect 0 "${client[@]}" delete --key $name-rollback.key
        expect 3 "${client[@]}" decrypt --key $name-rollback.key "${cbc[@]}" --in $name-rollback.enc

        expect 0 "${client[@]}" attest --key $name-ec.key --app-id app --challenge c \
            --application-id a --out chain
        awk '/BEGIN/ { pem = "" } { pem = pem $0 "\n" } END { printf "%s", pem }' chain >root
        expect 0 cmp root keys/cbor-$instance-root.pem
    done
done
[ $failures -eq 0 ] || { echo "$failures failures"; exit 1; }
