# Reads an attestation with the gem android_key_attestation and prints what it says.
#   read_attestation.rb CHALLENGE LEAF BATCH ROOT      (DER files)
# Ends with an error when challenge or chain are not right.
require "android_key_attestation"

challenge, *files = ARGV
certificates = files.map { |file| OpenSSL::X509::Certificate.new(File.binread(file)) }
statement = AndroidKeyAttestation::Statement.new(*certificates)
statement.verify_challenge(challenge)
statement.verify_certificate_chain(root_certificates: [certificates.last])

tee = statement.tee_enforced
software = statement.software_enforced
puts "attestation #{statement.attestation_version} #{statement.attestation_security_level}"
puts "keymaster #{statement.keymaster_version} #{statement.keymaster_security_level}"
puts "unique id #{statement.unique_id.bytesize}"
puts "purpose #{tee.purpose.join(' ')}"
puts "origin #{tee.origin}"
puts "created #{software.creation_date.utc}"
puts "software application id #{software.find_by_tag(709).value.first.value}"
