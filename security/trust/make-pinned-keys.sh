#!/usr/bin/env bash
# Makes a new pinned-keys data file: make-pinned-keys.sh OUTPUT
# Every run generates 52 fresh RSA keys (35 of 2048 bits, 17 of 3072 bits);
# the lists are composed the same way every time. Only public halves are kept:
# each private key goes from openssl genpkey through a pipe into openssl rsa,
# which prints the public half, so it is never written to disk.
set -euo pipefail
shopt -s inherit_errexit

die() { echo "make-pinned-keys: $*" >&2; exit 1; }
[[ $# -eq 1 && -n $1 ]] || die "usage: $0 OUTPUT"
command -v openssl >/dev/null || die "missing tool: openssl"

out=$1
tmp=$(mktemp "$out.XXXXXX")
trap 'rm -f "$tmp"' EXIT

# public_key BITS: a new key's RSAPublicKey DER as lower-case hex pairs.
public_key() {
  local bits=$1 text length
  text=$(openssl genpkey -algorithm RSA -pkeyopt "rsa_keygen_bits:$bits" 2>/dev/null |
    openssl rsa -RSAPublicKey_out -outform DER 2>/dev/null |
    od -An -v -tx1 | tr -s ' \n' '  ' | sed 's/^ //; s/ $//')
  length=$(( bits == 2048 ? 809 : 1193 ))
  [[ ${#text} -eq $length ]] || die "openssl made a $bits-bit key text of ${#text} characters"
  printf '%s' "$text"
}

k2048() { printf 'rsa2048_%02d' "$1"; }
k3072() { printf 'rsa3072_%02d' "$1"; }

# list NAME ENTRY...: eight entries to a continuation line.
list() {
  printf 'list %s\n' "$1"
  shift
  printf '%s\n' "$@" | xargs -n 8 | sed 's/^/    /'
}

# master: 2048-bit keys 1-29 with keys 4 and 17 repeated (entries 12 and 25),
# then the 3072-bit keys (entries 31-47).
master=()
for i in $(seq 1 29); do
  master+=("$(k2048 "$i")")
  if [[ $i -eq 12 ]]; then master+=("$(k2048 4)"); fi
  if [[ $i -eq 24 ]]; then master+=("$(k2048 17)"); fi
done
for i in $(seq 1 17); do master+=("$(k3072 "$i")"); done

# A: 42 master entries (not the repeats, nor 7, 19, 36 and 44), the single
# key, the four keys and key 35.
list_a=()
for i in $(seq 0 47); do
  case $i in 7|12|19|25|36|44) ;; *) list_a+=("master[$i]") ;; esac
done
list_a+=("single[0]" "four[0]" "four[1]" "four[2]" "four[3]" "$(k2048 35)")

# B: the 29 distinct 2048-bit master keys and the first three 3072-bit ones,
# the single key and the four keys.
list_b=()
for i in $(seq 0 33); do
  case $i in 12|25) ;; *) list_b+=("master[$i]") ;; esac
done
list_b+=("single[0]" "four[0]" "four[1]" "four[2]" "four[3]")

{
  cat <<'EOF'
# The pinned RSA public keys of the security library and the lists made of them.
#
# The 52 keys (35 of 2048 bits, 17 of 3072 bits) were generated for this project
# with openssl by security/trust/make-pinned-keys.sh. Only their public halves
# were kept: each private half went from openssl genpkey through a pipe into
# openssl rsa and was never written to disk.
#
# Format, read at build time by cmake/GeneratePinnedKeys.cmake:
#   key NAME HEX        the RSAPublicKey DER, each byte two lower-case hex
#                       digits, one blank between bytes
#   list NAME ENTRY...  a list; lines beginning with a blank continue it
# An ENTRY is a key's NAME or LIST[N], entry N (from 0) of an earlier list. The
# lists come in this order: master, single, four, fileTrustA, fileTrustB, short.
# Lines beginning with '#' are comments.

EOF
  for i in $(seq 1 35); do key=$(public_key 2048); printf 'key %s %s\n' "$(k2048 "$i")" "$key"; done
  for i in $(seq 1 17); do key=$(public_key 3072); printf 'key %s %s\n' "$(k3072 "$i")" "$key"; done
  echo
  list master "${master[@]}"
  list single "$(k2048 30)"
  list four "$(k2048 31)" "$(k2048 32)" "$(k2048 33)" "$(k2048 34)"
  list fileTrustA "${list_a[@]}"
  list fileTrustB "${list_b[@]}"
  list short "master[0]" "master[5]" "master[10]" "master[15]" "master[20]" "master[31]" "master[40]"
} >"$tmp"
chmod 644 "$tmp"
mv "$tmp" "$out"
