// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/package_server.h"

#include <thread>

#include <httplib.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "tools/common/failure.h"

namespace simdev {

namespace {

constexpr const char *loopback = "127.0.0.1";

template<typename type, void (*release)(type *)> struct releaser {
    void operator()(type *object) const
    {
        release(object);
    }
};
using key_pointer = std::unique_ptr<EVP_PKEY, releaser<EVP_PKEY, EVP_PKEY_free>>;
using certificate_pointer = std::unique_ptr<X509, releaser<X509, X509_free>>;
using extension_pointer =
    std::unique_ptr<X509_EXTENSION, releaser<X509_EXTENSION, X509_EXTENSION_free>>;
using bio_pointer = std::unique_ptr<BIO, releaser<BIO, BIO_free_all>>;

/// A certificate that is its own authority, for `key` and a day.
certificate_pointer make_certificate(EVP_PKEY *key)
{
    constexpr long day_seconds = 24L * 60 * 60;
    certificate_pointer made(X509_new());
    X509 *certificate = made.get();
    const extension_pointer authority(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE"));
    if (key == nullptr || certificate == nullptr || authority == nullptr)
        throw failure("no certificate can be made for --https");
    X509_NAME *name = X509_get_subject_name(certificate);
    const bool good = X509_set_version(certificate, X509_VERSION_3) == 1 &&
                      ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1) == 1 &&
                      X509_gmtime_adj(X509_getm_notBefore(certificate), -day_seconds) != nullptr &&
                      X509_gmtime_adj(X509_getm_notAfter(certificate), day_seconds) != nullptr &&
                      X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                                 reinterpret_cast<const unsigned char *>(loopback),
                                                 -1, -1, 0) == 1 &&
                      X509_set_issuer_name(certificate, name) == 1 &&
                      X509_set_pubkey(certificate, key) == 1 &&
                      X509_add_ext(certificate, authority.get(), -1) == 1 &&
                      X509_sign(certificate, key, EVP_sha256()) > 0;
    if (!good)
        throw failure("no certificate can be made for --https");
    return made;
}

std::string certificate_text(X509 *certificate)
{
    const bio_pointer memory(BIO_new(BIO_s_mem()));
    if (memory == nullptr || PEM_write_bio_X509(memory.get(), certificate) != 1)
        throw failure("no certificate can be made for --https");
    char *text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(size)};
}

} // namespace

struct package_server::state {
    std::unique_ptr<httplib::Server> server;
    std::string authority;
    int port = 0;
    std::thread thread;
};

package_server::package_server(const served_files &files, bool https, int connections)
    : state_(std::make_unique<state>())
{
    if (https) {
        const key_pointer key(EVP_EC_gen("P-256"));
        const certificate_pointer certificate = make_certificate(key.get());
        state_->authority = certificate_text(certificate.get());
        state_->server = std::make_unique<httplib::SSLServer>(certificate.get(), key.get());
    } else {
        state_->server = std::make_unique<httplib::Server>();
    }
    httplib::Server &server = *state_->server;
    server.new_task_queue = [connections] {
        return new httplib::ThreadPool(static_cast<size_t>(connections));
    };
    server.set_keep_alive_max_count(1); // no thread waits for a device that has its package
    server.set_tcp_nodelay(true);
    for (const auto &[path, bytes] : files)
        server.Get(path, [bytes = bytes](const httplib::Request &, httplib::Response &response) {
            response.set_content(reinterpret_cast<const char *>(bytes.data()), bytes.size(),
                                 "application/octet-stream");
        });
    state_->port = server.bind_to_any_port(loopback);
    if (state_->port <= 0)
        throw failure("no server can be started on " + std::string(loopback));
    state_->thread = std::thread([&server] { server.listen_after_bind(); });
    while (!server.is_running()) // stop() does nothing before
        std::this_thread::yield();
}

package_server::~package_server()
{
    state_->server->stop();
    state_->thread.join();
}

int package_server::port() const
{
    return state_->port;
}

const std::string &package_server::authority() const
{
    return state_->authority;
}

} // namespace simdev
