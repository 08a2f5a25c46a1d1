// Certificates for the HTTPS tests, made once per test process with the openssl command
// into a temporary folder that is removed when the process ends (nothing is committed):
//
//   ca.pem                 the test authority (EC P-256), trusted by the test clients
//   server.pem, server.key localhost and 127.0.0.1, signed by the test authority
//   other-ca.pem           a second authority that signed nothing used here
//   elsewhere.pem, .key    signed by the test authority, naming only 127.0.0.2
//   garbage.pem            a file that is no PEM at all
//
//   const nettest::TestPki& pki = nettest::testPki();
//   options.tlsCertificateFile = pki.file("server.pem");
//
// Thread-safety: made on first use under a function-local static; read-only after.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace nettest {

class TestPki {
 public:
  TestPki() {
    char pattern[] = "/tmp/connector-pki.XXXXXX";
    if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
    folder = pattern;
    const std::string script =
        "set -e; cd '" + folder +
        "'\n"
        "key='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes'\n"
        "openssl req -x509 $key -keyout ca.key -out ca.pem -days 2 -subj /CN=connector-test-ca "
        "-addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign\n"
        "openssl req -x509 $key -keyout other-ca.key -out other-ca.pem -days 2 "
        "-subj /CN=connector-other-ca -addext basicConstraints=critical,CA:TRUE "
        "-addext keyUsage=critical,keyCertSign\n"
        "leaf() {  # <name> <common name> <alt names>\n"
        "  openssl req -new $key -keyout $1.key -out $1.csr -subj /CN=$2\n"
        "  printf 'subjectAltName=%s\\nextendedKeyUsage=serverAuth\\n' \"$3\" > $1.ext\n"
        "  openssl x509 -req -in $1.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 "
        "-extfile $1.ext -out $1.pem\n"
        "}\n"
        "leaf server localhost DNS:localhost,IP:127.0.0.1\n"
        "leaf elsewhere 127.0.0.2 DNS:127.0.0.2,IP:127.0.0.2\n"
        "echo 'not a certificate' > garbage.pem\n";
    const std::string command =
        "sh -c \"$CONNECTOR_PKI_SCRIPT\" >'" + folder + "/openssl.log' 2>&1";
    ::setenv("CONNECTOR_PKI_SCRIPT", script.c_str(), 1);
    const int status = std::system(command.c_str());
    ::unsetenv("CONNECTOR_PKI_SCRIPT");
    if (status != 0) {
      std::ifstream log(folder + "/openssl.log");
      const std::string text((std::istreambuf_iterator<char>(log)),
                             std::istreambuf_iterator<char>());
      throw std::runtime_error("making the test certificates failed: " + text);
    }
  }
  ~TestPki() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  TestPki(const TestPki&) = delete;
  TestPki& operator=(const TestPki&) = delete;

  std::string file(const std::string& name) const { return folder + "/" + name; }
  const std::string& path() const { return folder; }

 private:
  std::string folder;
};

inline const TestPki& testPki() {
  static const TestPki pki;
  return pki;
}

// Writes `text` to `path`, replacing what was there.
inline void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::trunc);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + path);
}

}  // namespace nettest
