# Compares what lumokm inspect shows of an attestation with what two other readers find in it: the gem
# android_key_attestation, and openssl for the place of every element.
#   compare_readers.rb CHALLENGE SHOWN CERTIFICATE...
# SHOWN is the command's JSON; the certificates are PEM, the key's own first, the root last. Ends with an
# error where they differ, or where chain or challenge are not right.
require "android_key_attestation"
require "json"

challenge, shown, *files = ARGV
certificates = files.map { |file| OpenSSL::X509::Certificate.new(File.read(file)) }
statement = AndroidKeyAttestation::Statement.new(*certificates)
statement.verify_challenge(challenge)
statement.verify_certificate_chain(root_certificates: [certificates.last])
shown = JSON.parse(File.read(shown))

def same(what, here, there)
  abort "#{what}: lumokm shows #{here.inspect}, the other reader #{there.inspect}" if here != there
end

def places(der, from)
  OpenSSL::ASN1.enum_for(:traverse, der).flat_map do |_, offset, header, length|
    [[from + offset, header + length], [from + offset + header, length]]
  end
end

def check_places(items, known)
  items.each do |item|
    place = [item["offset"], item["size"]]
    abort "openssl finds no element at #{place} (#{item["name"]})" unless known.include?(place)
    check_places(item["parts"] || [], known)
  end
end

def value_of(node)
  case node
  when OpenSSL::ASN1::Set then node.value.map { |each| value_of(each) }.join(", ")
  when OpenSSL::ASN1::OctetString then node.value.inspect
  when OpenSSL::ASN1::Null then "true"
  when OpenSSL::ASN1::Integer, OpenSSL::ASN1::Enumerated then node.value.to_i.to_s
  end
end

same("faults", shown["faults"], [])
same("certificates", shown["fields"].size, certificates.size)
description = nil
certificates.zip(shown["fields"]) do |certificate, item|
  der = certificate.to_der
  known = places(der, 0)
  if certificate.equal?(certificates.first)
    content = certificate.extensions.find { |each| each.oid == "1.3.6.1.4.1.11129.2.1.17" }.value_der
    known += places(content, der.index(content))
    description = item["parts"].last["parts"].to_h { |part| [part["name"], part] }
  end
  check_places([item], known)
end

plain = ->(text) { text.to_s.gsub(/ \([^)]*\)/, "") }
same("attestation version", plain[description["attestationVersion"]["value"]], statement.attestation_version.to_s)
same("keymaster version", plain[description["keymasterVersion"]["value"]], statement.keymaster_version.to_s)
level = { trusted_environment: "1 (TRUSTED_ENVIRONMENT)", strong_box: "2 (STRONGBOX)" }
same("level", description["attestationSecurityLevel"]["value"], level[statement.attestation_security_level])
same("level", description["keymasterSecurityLevel"]["value"], level[statement.keymaster_security_level])
same("challenge", description["attestationChallenge"]["value"], challenge.inspect)
same("unique id", description["uniqueId"]["size"], statement.unique_id.bytesize)
{ "softwareEnforced" => statement.software_enforced,
  "hardwareEnforced" => statement.tee_enforced }.each do |name, list|
  elements = list.instance_variable_get(:@sequence)
  parts = description[name]["parts"]
  same(name, parts.map { |part| part["name"][/\d+/].to_i }, elements.map(&:tag))
  elements.zip(parts) do |element, part|
    value = element.value.first
    if value.is_a?(OpenSSL::ASN1::Sequence)
      key, locked, state, hash = value.value.map(&:value)
      told = part["parts"].map { |each| each["value"] }
      same("root of trust", [told[0], told[1][/\w+/], told[2][/\d+/], told[3]],
           [key.unpack1("H*"), locked.to_s, state.to_s, hash.unpack1("H*")])
    else
      same(part["name"], plain[part["value"]], value_of(value))
    end
  end
end
