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

/// A certificate that is its own authority, for `key` and a day.
std::shared_ptr<X509> make_certificate(EVP_PKEY *key)
{
    constexpr long day_seconds = 24L * 60 * 60;
    std::shared_ptr<X509> made(X509_new(), X509_free);
    X509 *certificate = made.get();
    const std::shared_ptr<X509_EXTENSION> authority(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE"),
        X509_EXTENSION_free);
    X509_NAME *name = made ? X509_get_subject_name(certificate) : nullptr;
    const bool good = key != nullptr && name != nullptr && authority != nullptr &&
                      X509_set_version(certificate, X509_VERSION_3) == 1 &&
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
    const std::shared_ptr<BIO> memory(BIO_new(BIO_s_mem()), BIO_free_all);
    if (memory == nullptr || PEM_write_bio_X509(memory.get(), certificate) != 1)
        throw failure("no certificate can be made for --https");
    char *text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(size)};
}

} // namespace

struct package_server::running {
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
};

package_server::package_server(const served_files &files, bool https, int connections)
    : running_(std::make_unique<running>())
{
    if (https) {
        const std::shared_ptr<EVP_PKEY> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
        const std::shared_ptr<X509> certificate = make_certificate(key.get());
        authority = certificate_text(certificate.get());
        running_->server = std::make_unique<httplib::SSLServer>(certificate.get(), key.get());
    } else {
        running_->server = std::make_unique<httplib::Server>();
    }
    httplib::Server &server = *running_->server;
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
    port = server.bind_to_any_port(loopback);
    if (port <= 0)
        throw failure("no server can be started on " + std::string(loopback));
    running_->thread = std::thread([&server] { server.listen_after_bind(); });
    while (!server.is_running()) // stop() does nothing before
        std::this_thread::yield();
}

package_server::~package_server()
{
    running_->server->stop();
    running_->thread.join();
}

} // namespace simdev
