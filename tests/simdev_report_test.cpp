// SPDX-License-Identifier: GPL-2.0-or-later
//
// What simdev says: whole texts, written by hand.
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/simdev/measure.h"
#include "tools/simdev/sweep.h"

namespace {

using namespace simdev;
namespace fs = std::filesystem;

/// Operations of a run, one after the other.
struct script {
    std::vector<sim_operation> operations = {make_operation(op_start, nullptr)};

    sim_operation &add(sim_op op, const char *target, int64_t virtual_us, int64_t real_us)
    {
        sim_operation operation = make_operation(op, target);
        operation.virtual_us = virtual_us;
        operation.real_us = real_us;
        operations.push_back(operation);
        return operations.back();
    }
    void datagram(const std::string &text, int64_t virtual_us, int64_t real_us)
    {
        for (const char *receiver : {"/tmp/.upgrd_info", "/tmp/.syscfg-server"}) {
            sim_operation &operation = add(op_datagram, receiver, virtual_us, real_us);
            operation.text_size = static_cast<uint8_t>(text.copy(operation.text, 100));
            operation.result = operation.text_size;
        }
    }
    void kick(int32_t line, int32_t error, int64_t virtual_us, int64_t real_us)
    {
        sim_operation &operation = add(op_kick, "/dev/gpio", virtual_us, real_us);
        operation.line = line;
        operation.error = error;
        operation.result = error == 0 ? 0 : -1;
    }
    void write(const char *target, int64_t result, int fault, int64_t virtual_us, int64_t real_us)
    {
        sim_operation &operation = add(op_write, target, virtual_us, real_us);
        operation.result = result;
        operation.error = result < 0 ? EIO : 0;
        operation.fault = fault;
    }
    run_record record(const std::string &protocol, bool fast = true)
    {
        measure measured(protocol, fast);
        uint64_t number = 0;
        for (sim_operation &operation : operations) {
            operation.n = ++number;
            measured.take(operation);
        }
        return measured.record();
    }
};

/// A device folder with "123456789" in partition 2, its trailer behind it.
struct folder {
    fs::path path =
        fs::path(testing::TempDir()) / ("simdev_report_test-" + std::to_string(getpid()));
    folder()
    {
        fs::create_directories(path / "dev");
        fs::create_directories(path / "run");
        fill('9');
        said("");
    }
    ~folder()
    {
        fs::remove_all(path);
    }
    void fill(char last) const
    {
        const std::string trailer("\x26\x39\xF4\xCB\x09\0\0\0\x60\xA9\x36\x10\x31\x70\x42\x44", 16);
        std::ofstream(path / "dev/fla2", std::ios::binary) << "12345678" << last << trailer;
        std::ofstream(path / "dev/fla3", std::ios::binary) << std::string(40, '\xFF');
    }
    void said(const std::string &text) const
    {
        std::ofstream(path / "run/stderr") << text;
    }
};

void expect_in(const report &said, std::initializer_list<const char *> texts)
{
    const std::string json = said.document().dump();
    for (const char *text : texts)
        EXPECT_NE(json.find(text), std::string::npos) << text << " is not in " << json;
}

script whole_run()
{
    script run;
    sim_operation &script = run.add(op_script, "/etc/rc.d/init.d/network.stop", 1'500'000, 1'000);
    script.result = 3;
    run.datagram("UPGRD_STAGE=WRITING", 1'500'000, 5'000);
    run.write("/dev/fla2", 9, -1, 1'500'000, 6'000);
    run.kick(5, 0, 1'500'000, 7'000);
    run.add(op_sleep, nullptr, 1'540'000, 7'000);
    run.write("/dev/fla2", -1, 0, 1'540'000, 8'000);
    run.kick(5, EIO, 1'540'000, 9'000);
    run.kick(-1, 0, 1'540'000, 9'000);
    run.write("/dev/fla3", 16, -1, 1'640'000, 9'000);
    run.datagram("UPGRD_STAGE=VERIFYING", 1'640'000, 10'000);
    run.kick(5, 0, 1'640'000, 11'000);
    run.add(op_sleep, nullptr, 3'640'000, 12'000);
    run.datagram("UPGRD_STAGE=DONE", 3'640'000, 13'000);
    return run;
}

TEST(SimdevReport, TellsAWholeRun)
{
    const folder device;
    device.said("open /dev/fla2 for writing\nblock #0 differ\nlast block #1 differ\n");
    run_options options;
    options.folder = device.path;
    options.fast = true;
    options.faults = {"write-error@2", "cut@99", "closed:fd=0"};
    const run_outcome outcome = {.exit_status = 0, .signal = {}, .real_us = 14'000};
    const report said = report_run(whole_run().record("tftp"), options, outcome);
    EXPECT_EQ(said.text(), R"(result      exit status 0
stages      WRITING at 1.500 s, VERIFYING at 1.640 s, DONE at 3.640 s
/dev/fla2   9 bytes in 2 writes (1 failed); crc cbf43926 over 9 bytes: valid
/dev/fla3   16 bytes in 1 writes; no trailer
read back   block #0 differ
            last block #1 differ
watchdog    2 kicks, 1 refused, 1 without a line, which feed nothing, the first after 1.500 s
            longest time without one 2.002 s: verifying to end
            phase                 kicks   sleeps and waits  work here   sum
            download (tftp)       0       0.000 s           0.000 s     0.000 s
            script                0       1.500 s           0.001 s     1.501 s
            writing               1       0.140 s           0.002 s     0.142 s
            verifying             1       0.000 s           0.002 s     0.002 s
            end                   0       2.000 s           0.002 s     2.002 s
script      run, exit status 3
fault       write-error@2 in 1 operations
fault       cut@99 never came to pass
datagrams   3 to /tmp/.upgrd_info, 3 to /tmp/.syscfg-server
duration    virtual 3.640 s, real 0.014 s, 17 operations
)");
    device.fill('8');
    EXPECT_NE(report_run(whole_run().record("tftp"), options, outcome)
                  .text()
                  .find("crc cbf43926 over 9 bytes: CRC wrong\n"),
              std::string::npos);
    expect_in(said,
              {R"("partitions":{"2":{"bytes":9,"crc":"cbf43926","failed":1,"length":9,)"
               R"("trailer":"valid","writes":2},"3":{)",
               R"("faults":{"cut@99":0,"write-error@2":1})",
               R"({"real_us":10000,"text":"UPGRD_STAGE=VERIFYING","virtual_us":1640000})",
               R"("differences":["block #0 differ","last block #1 differ"])",
               R"({"kicks":1,"longest":{"virtual_us":140000,"work_us":2000},"phase":"writing"})",
               R"("script":3)", R"("touched_the_device":true)"});
}

TEST(SimdevReport, TellsHowARunEndedAndWhatItSaid)
{
    const folder device;
    device.said("1\n2\n\n3\n4\n5\n\x1b[1mlast\n");
    run_options options;
    options.folder = device.path;
    script run;
    run.datagram("UPGRD_ERROR=DOWNLOAD FAILED", 200'000, 200'000);
    run.add(op_script, "/etc/rc.d/init.d/network.stop", 200'000, 230'000).fault = 0;
    run.add(op_reset, nullptr, 400'000, 500'000);
    // Real time holds the virtual time, unless it was counted only.
    EXPECT_EQ(report_run(run.record("ftp", false), options,
                         {.exit_status = 101, .signal = {}, .real_us = 500'000})
                  .text(),
              R"(result      exit status 101 (reset by the watchdog)
stages      error "DOWNLOAD FAILED" at 0.200 s
watchdog    0 kicks
            longest time without one 0.500 s: download (ftp) to checks
            phase                 kicks   sleeps and waits  work here   sum
            download (ftp)        0       0.200 s           0.000 s     0.200 s
            script                0       0.000 s           0.030 s     0.030 s
            checks                0       0.200 s           0.070 s     0.270 s
script      run, does not end
datagrams   1 to /tmp/.upgrd_info, 1 to /tmp/.syscfg-server
duration    virtual 0.400 s, real 0.500 s (25.00 % beyond it), 5 operations
said        at last (all of it is in )" +
                  (device.path / "run/stderr").string() + R"():
            | 2
            | 3
            | 4
            | 5
            | \x1b[1mlast
)");
    const auto result = [&options](const script &operations, const run_outcome &outcome) {
        script copy = operations;
        const std::string text = report_run(copy.record("http"), options, outcome).text();
        return text.substr(0, text.find('\n'));
    };
    script ended;
    ended.add(op_power_cut, nullptr, 0, 0);
    EXPECT_EQ(result(ended, {.exit_status = 100, .signal = {}}),
              "result      exit status 100 (power cut)");
    ended.operations.back().op = op_hang;
    EXPECT_EQ(result(ended, {.exit_status = 102, .signal = {}}),
              "result      exit status 102 (would hang for ever)");
    ended.operations.back().op = op_sync;
    EXPECT_EQ(result(ended, {.exit_status = 139, .signal = 11}),
              "result      exit status 139 (ended by signal 11, Segmentation fault)");
    EXPECT_EQ(result({}, {.exit_status = 0, .signal = {}}),
              "result      exit status 0; the program never touched the device: is it an upgrade?");
}

TEST(SimdevReport, FindsTheLongestTimeWithoutAKickInPhasesThatComeAgain)
{
    script run;
    run.add(op_script, "/etc/rc.d/init.d/network.stop", 0, 0).error = ENOENT;
    run.operations.back().result = -1;
    run.add(op_open, "/dev/fla2", 0, 10'000);
    for (int attempt = 0; attempt < 2; attempt++) {
        run.datagram("UPGRD_STAGE=WRITING", 0, 10'000);
        run.datagram("UPGRD_STAGE=VERIFYING", 0, 10'000);
    }
    run.add(op_sleep, nullptr, 2'000'000, 10'000);
    std::string names;
    const run_record unfed = run.record("http");
    for (const phase_record &phase : unfed.phases)
        names += phase.name + ";";
    EXPECT_EQ(names, "download (http);script;checks;writing;verifying;end;");
    EXPECT_EQ(unfed.longest_phases, "download (http) to end");
    EXPECT_EQ(unfed.longest.virtual_us, 2'000'000);
    EXPECT_FALSE(unfed.first_kick_us);
    run.kick(5, 0, 2'500'000, 2'010'000); // work counts as well as time that is slept
    run.kick(5, 0, 3'000'000, 4'810'000);
    run.kick(5, 0, 5'600'000, 4'820'000);
    EXPECT_EQ(run.record("http").longest_phases, "download (http) to end");
    EXPECT_EQ(run.record("http").longest.sum(), 4'510'000);
    EXPECT_EQ(run.record("http").phases.back().longest.sum(), 4'500'000);
}

TEST(SimdevReport, TellsASweepWithARecoveryThatDoesNotRecover)
{
    using image::trailer_state;
    const partition_state old_valid = {content_state::old_content, trailer_state::valid};
    const partition_state mixed = {content_state::mixed, trailer_state::crc_wrong};
    const partition_state taken = {content_state::mixed, trailer_state::valid};
    const partition_state torn = {content_state::mixed, trailer_state::none};
    const partition_state fresh = {content_state::new_content, trailer_state::valid};
    sweep_result result;
    result.writes = 9;
    result.partitions = {2, 3};
    result.real_us = 1'250'000;
    result.interrupted = true;
    result.points = {
        {1, {{2, mixed}, {3, old_valid}}, true, 0},  {2, {{2, mixed}, {3, old_valid}}, true, 0},
        {3, {{2, mixed}, {3, old_valid}}, false, 0}, {4, {{2, mixed}, {3, old_valid}}, false, 2},
        {5, {{2, fresh}, {3, taken}}, true, 0},      {7, {{2, fresh}, {3, taken}}, true, 0},
        {8, {{2, fresh}, {3, torn}}, true, 0},
    };
    const report said = report_sweep(result);
    EXPECT_EQ(said.text(),
              R"(power cut   after write /dev/fla2           /dev/fla3           next run
            1 to 2      mixed, CRC wrong    old, valid          recovers
            3           mixed, CRC wrong    old, valid          LEAVES ANOTHER FLASH, exit status 0
            4           mixed, CRC wrong    old, valid          FAILS, exit status 2
            5           new, valid          mixed, valid        recovers
            7           new, valid          mixed, valid        recovers
            8           new, valid          mixed, no trailer   recovers
swept       7 of 9 flash writes; interrupted: no more were tried
recovered   5 by the next run, byte for byte
deceptive   6 with a mixed partition under a trailer with a right check word; at 2 of these its CRC is right, too
duration    real 1.250 s
)");
    expect_in(said, {R"({"partitions":{"2":{"content":"mixed","trailer":"CRC wrong"},)"
                     R"("3":{"content":"old","trailer":"valid"}},"recovered":false,)"
                     R"("recovery_status":2,"write":4})",
                     R"("recovered":5)", R"("interrupted":true)"});
}

TEST(SimdevReport, WritesAnOperationAsALineOfJson)
{
    sim_operation operation = make_operation(op_seek, "/dev/fla2");
    operation.n = 7;
    operation.number = 1;
    operation.offset = -16;
    operation.result = -1;
    operation.error = EINVAL;
    operation.fault = 1;
    operation.virtual_us = 5;
    operation.real_us = 6;
    EXPECT_EQ(operation_json(operation, {"cut@1", "seek-error@1x2"}),
              R"({"n":7,"op":"seek","target":"/dev/fla2","number":1,"offset":-16,"result":-1,)"
              R"("error":"EINVAL","fault":"seek-error","virtual_us":5,"real_us":6})");
    operation = make_operation(op_datagram, nullptr);
    operation.text_size = 3;
    operation.text[0] = '"';
    operation.text[1] = '\xE9';
    operation.text[2] = '\n';
    EXPECT_EQ(operation_json(operation, {}), R"({"n":0,"op":"datagram","text":"\"\u00e9\n",)"
                                             R"("virtual_us":0,"real_us":0})");
}

} // namespace
