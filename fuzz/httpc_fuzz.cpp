// SPDX-License-Identifier: GPL-2.0-or-later
//
// The HTTP client as a library: the input is a sequence of its operations, and the server's bytes.
#include <cstring>
#include <memory>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"
#include "httpc/httpc.h"
#include "httpc/httpc_client.h"

namespace {

void read(httpc_client *client, int size)
{
    const auto bytes = std::make_unique<char[]>(static_cast<size_t>(size)); // also of 0 bytes
    const int count = httpcReadResponse(client, bytes.get(), size);
    fuzz::require(count >= -1 && count <= size, "no more is read than fits");
}

void receive(httpc_client *client, int wanted)
{
    char *bytes = nullptr;
    const int count = httpcRecvResponse(client, &bytes, wanted);
    fuzz::require(count >= -1 && (count <= wanted || wanted < 0), "no more is given than wanted");
    const char *begin = httpcProcessResponse(client);
    fuzz::require(count <= 0 || (bytes >= begin && bytes + count <= begin + httpc_refill_size + 1),
                  "what is given lies within the buffer");
}

void operate(httpc_client *client, fuzz::input *input, std::string *name)
{
    switch (input->byte() % 9) {
    case 0:
        httpcInitRequest(client, input->byte() % 4, input->text().c_str());
        break;
    case 1:
        *name = input->text();
        httpcAddHeader(client, name->c_str(), input->text().c_str());
        break;
    case 2:
        *name = input->text();
        httpcPushVar(client, name->c_str(), input->byte() == 0 ? nullptr : input->text().c_str());
        break;
    case 3:
        httpcSetContentType(client, input->text().c_str());
        break;
    case 4:
        httpcSendRequest(client);
        break;
    case 5:
        httpcGetResponse(client, input->byte() % 2);
        break;
    case 6:
        read(client, static_cast<int>(input->word()));
        break;
    case 7:
        receive(client, static_cast<int>(input->word()) - 1);
        break;
    default:
        httpcGetVar(client, name->c_str());
        httpcGetHeader(client, name->c_str());
        httpcFreeVars(client);
    }
    const httpc_response &response = client->response;
    fuzz::require(response.available >= 0 && response.read_position >= 0 &&
                      response.read_position + response.available <= httpc_refill_size + 1,
                  "what is unread lies within the buffer");
    fuzz::require(strnlen(client->request.encoded_variables, httpc_encoded_size) <
                          httpc_encoded_size &&
                      strnlen(client->request.path, httpc_host_size) < httpc_host_size &&
                      strnlen(client->request.host, httpc_host_size) < httpc_host_size &&
                      strnlen(response.reason, sizeof(response.reason)) < sizeof(response.reason),
                  "texts are terminated");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    fuzz::world world;
    world.fault = input.word();
    const uint8_t kind = input.byte();
    fuzz::input operations(data, 0);
    const std::vector<uint8_t> script = input.bytes(input.word());
    operations = fuzz::input(script.data(), script.size());
    world.streams = input.rest();
    std::string name;
    const fuzz::run run(&world);
    httpc_client *client = httpcOpenClient("host", 80, kind & 1);
    if (client == nullptr)
        return 0;
    client->connect_timeout_seconds = (kind & 2) != 0 ? 5 : 0;
    while (operations.left() > 0)
        operate(client, &operations, &name);
    const bool tls = client->tls != nullptr || (kind & 1) != 0;
    httpcCloseClient(client);
    fuzz::require(tls || world.fault != 0 || fuzz::run::open_descriptors() == 0,
                  "a closed client has no connection");
    return 0;
}
