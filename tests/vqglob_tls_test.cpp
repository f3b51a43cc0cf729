// The deployment daemon with TLS: client certificates verified against the
// configured CA and checked against "Allowed Clients" by common name or
// fingerprint; plain clients and unlisted identities are refused.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/net_support.h"
#include "vqglob_harness.h"

#ifndef _WIN32
#include "support/test_pki.h"
#endif

namespace {

namespace fs = std::filesystem;
using namespace vqglob_test;

#ifndef _WIN32

class VqglobTls : public ::testing::Test {
protected:
    void SetUp() override {
        if (kTool == nullptr) {
            GTEST_SKIP() << "the tool is not built";
        }
        fs::create_directories(src() / "sub");
        std::ofstream(src() / "a.txt") << "alpha";
        std::ofstream(src() / "sub/b.txt") << "beta";
    }
    fs::path src() const { return scratch_.path() / "src"; }
    const vq::test::TestPki &pki() const { return pki_; }
    std::string server_tls(const std::string &allowed, bool plain_too = false) const {
        return std::string("Insecure Loopback=") + (plain_too ? "TRUE" : "FALSE") + "\nCertificate File=" + pki_.server.cert.string() +
               "\nKey File=" + pki_.server.key.string() + "\nCA File=" + pki_.ca.cert.string() +
               "\nAllowed Clients=_ml_text_\n" + allowed + "\n_ml_text_\n";
    }
    ToolResult deploy(const Daemon &d, const vq::test::TestCert &who) const {
        return run_tool({"deploy", src().string(), "-to=" + d.target(), "-cert=" + who.cert.string(),
                         "-key=" + who.key.string(), "-ca=" + pki_.ca.cert.string()});
    }

    vq::test::ScratchDir scratch_{"vqglob_tls"};
    vq::test::ScratchDir pki_dir_{"vqglob_tls_pki"};
    const vq::test::TestPki &pki_ = vq::test::make_test_pki(pki_dir_.path());
};

TEST_F(VqglobTls, AnAllowedClientDeploysByNameOrFingerprint) {
    vq::test::ScratchDir other("vqglob_tls_b");
    Daemon by_name(scratch_.path(), server_tls(pki().client.common_name));
    Daemon by_print(other.path(), server_tls(pki().client.fingerprint));
    for (const Daemon *d : {&by_name, &by_print}) {
        ToolResult run = deploy(*d, pki().client);
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_TRUE(run.says("done: 2 sent")) << run.output;
        EXPECT_EQ(vq::test::read_file(d->root() / "sub/b.txt"), vq::test::read_file(src() / "sub/b.txt"));
    }
    ToolResult list = run_tool({"releases", by_name.target(), "-cert=" + pki().client.cert.string(),
                                "-key=" + pki().client.key.string(), "-ca=" + pki().ca.cert.string()});
    EXPECT_EQ(list.status, 0) << list.output;
    by_name.child().wait_line("TLS client " + pki().client.common_name + " (" + pki().client.fingerprint + ")");
}

TEST_F(VqglobTls, WithInsecureLoopbackPlainAndTlsClientsShareThePort) {
    Daemon d(scratch_.path(), server_tls(pki().client.common_name, true));
    ToolResult plain = run_tool({"deploy", src().string(), "-to=" + d.target(), "-insecure"});
    EXPECT_EQ(plain.status, 0) << plain.output;
    EXPECT_TRUE(plain.says("done: 2 sent")) << plain.output;
    std::ofstream(src() / "a.txt") << "alpha, changed";
    ToolResult secured = deploy(d, pki().client);
    EXPECT_EQ(secured.status, 0) << secured.output;
    EXPECT_TRUE(secured.says("done: 1 sent")) << secured.output;
    d.child().wait_line("TLS client " + pki().client.common_name);
    EXPECT_EQ(vq::test::read_file(d.root() / "a.txt"), vq::test::read_file(src() / "a.txt"));
}

TEST_F(VqglobTls, UnlistedIdentitiesAndPlainClientsAreRefused) {
    Daemon d(scratch_.path(), server_tls("someone-else"));
    ToolResult unlisted = deploy(d, pki().client);
    EXPECT_NE(unlisted.status, 0);
    EXPECT_TRUE(unlisted.says("client deploy-client (" + pki().client.fingerprint + ") is not among the Allowed Clients"))
        << unlisted.output;
    ToolResult plain = run_tool({"deploy", src().string(), "-to=" + d.target(), "-insecure"});
    EXPECT_NE(plain.status, 0) << plain.output;
    d.child().wait_line(": TLS handshake failed");
    ToolResult wrong_ca = run_tool({"deploy", src().string(), "-to=" + d.target(), "-cert=" + pki().client.cert.string(),
                                    "-key=" + pki().client.key.string(), "-ca=" + pki().other_ca.cert.string()});
    EXPECT_NE(wrong_ca.status, 0) << wrong_ca.output;
    d.wait_connections_closed();
    EXPECT_FALSE(fs::exists(d.root() / "a.txt"));
}

#endif

}  // namespace
