#!/usr/bin/env bash
# Makes throwaway Authenticode test material: make-test-material.sh OUTDIR [--big]
# Keys are generated per run and nothing here is meant to be committed.
set -euo pipefail

die() { echo "make-test-material: $*" >&2; exit 1; }
[[ $# -ge 1 && -n $1 ]] || die "usage: $0 OUTDIR [--big]"
big=no
[[ ${2:-} == --big ]] && big=yes
for t in openssl osslsigncode x86_64-w64-mingw32-gcc x86_64-w64-mingw32-objdump; do
  command -v "$t" >/dev/null || die "missing tool: $t"
done

out=$1
mkdir -p "$out"
out=$(cd "$out" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# Tools are chatty; show their output only when they fail.
run() { "$@" >"$tmp/log" 2>&1 || { cat "$tmp/log" >&2; die "failed: $*"; }; }

utc() { date -u -d "$1" +%Y%m%d%H%M%SZ; }
past=$(utc '-1 day')   # slack for clock skew between make and verify
ca_end=$(utc '+30 years')
end10=$(utc '+10 years')

# openssl ca, unlike x509 -req, takes exact start/end dates.
touch "$tmp/index.txt"
cat >"$tmp/ca.cnf" <<EOF
[ca]
default_ca = ca_sect
[ca_sect]
database = $tmp/index.txt
new_certs_dir = $tmp
rand_serial = yes
default_md = sha256
policy = pol
unique_subject = no
preserve = yes
[pol]
countryName = optional
stateOrProvinceName = optional
localityName = optional
organizationName = optional
organizationalUnitName = optional
commonName = supplied
EOF

# cert NAME ISSUER|self START END ca|EKU
cert() {
  local name=$1 issuer=$2 start=$3 end=$4 use=$5 sign
  if [[ $use == ca ]]; then
    printf 'basicConstraints=critical,CA:true\nkeyUsage=critical,keyCertSign,cRLSign\n'
  else
    printf 'basicConstraints=critical,CA:false\nkeyUsage=critical,digitalSignature\n'
    printf 'extendedKeyUsage=%s\n' "$use"
  fi >"$tmp/ext"
  printf 'subjectKeyIdentifier=hash\nauthorityKeyIdentifier=keyid\n' >>"$tmp/ext"
  # key=FILE certifies an existing key again; bits= sizes a new one.
  if [[ -n ${key:-} ]]; then
    cp "$key" "$out/$name.key"
    run openssl req -new -key "$out/$name.key" -subj "${subject:-/CN=Kestrel Test $name}" -out "$tmp/$name.csr"
  else
    run openssl req -new -newkey "rsa:${bits:-2048}" -nodes -keyout "$out/$name.key" \
      -subj "${subject:-/CN=Kestrel Test $name}" -out "$tmp/$name.csr"
  fi
  if [[ $issuer == self ]]; then
    sign=(-selfsign -keyfile "$out/$name.key")
  else
    sign=(-cert "$out/$issuer.crt" -keyfile "$out/$issuer.key")
  fi
  run openssl ca -batch -notext -config "$tmp/ca.cnf" -extfile "$tmp/ext" "${sign[@]}" \
    -startdate "$start" -enddate "$end" -in "$tmp/$name.csr" -out "$out/$name.crt"
}

# CAs reach back to 2015 so the chain is valid at the 2020 timestamp time too.
cert root         self         20150101000000Z "$ca_end" ca
cert intermediate root         20150101000000Z "$ca_end" ca
cert tsa          root         20190101000000Z "$ca_end" critical,timeStamping
# The leaf's subject has several parts, in the order they are encoded.
subject="/C=US/ST=Washington/L=Redmond/O=Kestrel Test/OU=Release/CN=Kestrel Test leaf" \
cert leaf         intermediate "$past" "$end10" codeSigning
cert expired      intermediate 20200101000000Z 20210101000000Z codeSigning
cert notyet       intermediate "$(utc '+1 year')" "$(utc '+11 years')" codeSigning
cert wrongpurpose intermediate "$past" "$end10" serverAuth
cert other-root   self         20150101000000Z "$ca_end" ca
cert untrusted    other-root   "$past" "$end10" codeSigning
# For pinned keys: a 3072-bit signer, a second certificate of the leaf's key,
# and a signer named as the Dropbox publisher.
bits=3072 cert leaf3072 intermediate "$past" "$end10" codeSigning
key=$out/leaf.key cert samekey intermediate "$past" "$end10" codeSigning
subject="/C=US/ST=California/L=San Francisco/O=Dropbox, Inc/CN=Dropbox, Inc" \
cert dropbox      intermediate "$past" "$end10" codeSigning
# Each signer's public key as the trust tables write it: the DER RSA key,
# lower-case hex bytes with one blank between.
for name in leaf leaf3072 samekey expired untrusted dropbox; do
  openssl x509 -in "$out/$name.crt" -noout -pubkey |
    openssl rsa -pubin -RSAPublicKey_out -outform DER 2>/dev/null |
    od -An -v -tx1 | tr -s ' \n' '  ' | sed 's/^ //; s/ $//' >"$out/$name.keytext"
  [[ -s $out/$name.keytext ]] || die "no key text for $name"
done
cat "$out/leaf.crt" "$out/intermediate.crt" >"$out/chain.pem"

# Tiny sample; -DBIG adds a large initialised array so the image (not bss) grows.
compile() {
  run x86_64-w64-mingw32-gcc -s -O2 -x c - -o "$1" "${@:2}" <<'EOF'
#include <stdio.h>
#ifdef BIG
static const unsigned char pad[BIG] = {1};
#endif
int main(int argc, char **argv) {
    (void)argv;
#ifdef BIG
    return pad[argc];
#else
    puts("kestrel sample");
    return argc > 1;
#endif
}
EOF
}
compile "$out/unsigned.exe"

# sign OUT LEAF [extra osslsigncode options...]; certs = leaf + its issuer
sign() {
  local dst=$1 name=$2 issuer=intermediate
  # The untrusted root travels inside the signature: embedded roots must not count.
  [[ $name == untrusted ]] && issuer=other-root
  cat "$out/$name.crt" "$out/$issuer.crt" >"$tmp/$name-chain.pem"
  rm -f "$dst"   # osslsigncode refuses to overwrite
  run osslsigncode sign -certs "$tmp/$name-chain.pem" -key "$out/$name.key" \
    -h "${hash:-sha256}" "${@:3}" -in "${src:-$out/unsigned.exe}" -out "$dst"
}
sign "$out/signed.exe" leaf
# Both claim a signing time inside the expired leaf's validity (2020-07-01);
# only the timestamped one may be trusted for it.
t2020=1593561600
sign "$out/expired.exe" expired -time $t2020
sign "$out/expired-ts.exe" expired -time $t2020 \
  -TSA-certs "$out/tsa.crt" -TSA-key "$out/tsa.key" -TSA-time $t2020
sign "$out/notyet.exe" notyet
sign "$out/wrongpurpose.exe" wrongpurpose
sign "$out/untrusted.exe" untrusted
sign "$out/signed3072.exe" leaf3072
sign "$out/samekey.exe" samekey
sign "$out/dropbox.exe" dropbox
# Nested: SHA-1 primary, SHA-256 appended as a nested signature.
hash=sha1 sign "$tmp/sha1.exe" leaf
src=$tmp/sha1.exe sign "$out/nested.exe" leaf -nest
# Nested with another key second: leaf first, the 3072-bit signer nested.
src=$out/signed.exe sign "$out/nested3072.exe" leaf3072 -nest
# Bytes after the certificate table.
{ cat "$out/signed.exe"; printf 'trailing'; } >"$out/trailing.exe"
# The unsigned program's Authenticode digest (the same bytes signed.exe
# signs), the tag a catalog lists it by.
{ osslsigncode verify -in "$out/signed.exe" 2>/dev/null || true; } |
  sed -n 's/^Calculated message digest *: *//p' | tr -d ' ' | tr a-f A-F >"$out/unsigned.tag"
[[ $(wc -c <"$out/unsigned.tag") -eq 65 ]] || die "no Authenticode digest for unsigned.exe"

# Flip one byte in the middle of .text; objdump gives size and file offset (hex).
read -r tsize toff < <(x86_64-w64-mingw32-objdump -h "$out/signed.exe" |
  awk '$2 == ".text" { print $3, $6 }') || true
[[ -n ${toff:-} ]] || die "no .text section in signed.exe"
pos=$(( 0x$toff + 0x$tsize / 2 ))
cp "$out/signed.exe" "$out/tampered.exe"
byte=$(od -An -tu1 -j "$pos" -N1 "$out/tampered.exe" | tr -d ' ')
printf "\\$(printf '%03o' $(( byte ^ 0xff )))" |
  dd of="$out/tampered.exe" bs=1 seek="$pos" conv=notrunc status=none
cmp -s "$out/signed.exe" "$out/tampered.exe" && die "tamper did not change signed.exe"

# The signatures alone (DER PKCS#7), for tests of the signature checks.
for name in signed nested expired expired-ts notyet wrongpurpose untrusted; do
  rm -f "$out/$name.p7"
  run osslsigncode extract-signature -in "$out/$name.exe" -out "$out/$name.p7"
done

if [[ $big == yes ]]; then
  compile "$tmp/big-unsigned.exe" -DBIG=$(( 64 << 20 ))
  src=$tmp/big-unsigned.exe sign "$out/big.exe" leaf
fi

# For countersignatures the signature tests make: a timestamping certificate
# that does not chain to the test root, and one that has expired since 2020.
cert untrusted-tsa other-root 20190101000000Z "$ca_end" critical,timeStamping
cert expired-tsa   root       20190101000000Z 20210101000000Z critical,timeStamping

echo "make-test-material: wrote $(ls "$out" | wc -l) files to $out"
