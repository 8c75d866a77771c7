// SPDX-License-Identifier: MIT
// Modules that a profile file brings by itself: which pairs of MODEL and LIKE count, and what a
// module of theirs is asked.
#include "host/look/check_profiles.h"
#include "tests/testing.h"

namespace
{

struct ByFile : testing::Test {
    // Files in this order of reading, each with these lines.
    void read(const std::vector<std::string>& files)
    {
        put_profiles_aside();
        std::filesystem::remove_all(folder.path);
        std::filesystem::create_directory(folder.path);
        int count = 0;
        for (const std::string& text : files) {
            const std::string name = std::to_string(count++) + ".conf";
            std::ofstream(std::string(folder.path) + "/" + name) << text;
            EXPECT_EQ(cfg_file_add(folder.path, name.c_str()), 0);
            EXPECT_EQ(parse_cfg_file(list_entry(cfg_file_list.prev, cfg_file, node)), 0);
        }
        modules_of_files();
    }
    static const cfg_file* file(int number)
    {
        list_head* node = cfg_file_list.next;
        while (number-- > 0)
            node = node->next;
        return list_entry(node, cfg_file, node);
    }
    const scratch folder{"/tmp/profiles"};
};

} // namespace

// Catches: a pair that hides a module of the library's, or that no module can have, and one that
// takes its file along.
TEST_F(ByFile, PairsThatAreNotRightAreSaidAndCostNothingElse)
{
    const std::string longest(15, 'X');
    const std::pair<std::string, const char*> rows[] = {
        {"MODEL => RM520N\n", "MODEL without LIKE"},
        {"LIKE => UC20\n", "LIKE without MODEL"},
        {"MODEL =>\nLIKE => UC20\n", "it is empty"},
        {"MODEL => SIM\nLIKE => UC20\n", "shorter than 4"},
        {"MODEL => " + longest + "X\nLIKE => UC20\n", "longer than the 15"},
        {"MODEL => AT+CG\nLIKE => UC20\n", "no answer to AT+CGMM begins so"},
        {"MODEL => NOKIA\nLIKE => UC20\n", "no answer"}, // OK in it would end the command
        {"MODEL => SIM\xc3\x97\nLIKE => UC20\n", "no answer"},
        {"MODEL => EC25\nLIKE => UC20\n", "that is known without a file, EC25"},
        {"MODEL => RM50\nLIKE => UC20\n", "that is known without a file, RM500"},
        {"MODEL => Quectel\nLIKE => UC20\n", "that is known without a file, Quectel_M35"},
        {"MODEL => RM520N\nLIKE => RM52\n", "no flow is known of its LIKE, RM52"},
        {"MODEL => RM520N\nLIKE => EC200T\n", "no flow is known of its LIKE, EC200T"},
        {"MODEL => RM520N\nLIKE =>\n", "no flow is known of its LIKE"},
        {"MODEL => RM520N\r\nLIKE => RM500Q\r\n", ""},
        {"MODEL => " + longest + "\nLIKE => EC25V\n", ""},
        {"MODEL => RM520N\nMODEL => EC25\nLIKE => UC20\n", ""}, // the first line of a key wins
    };
    for (const auto& [text, fault] : rows) {
        captured out;
        read({"MODULE => X123\n" + text + "AT_GSM => AT+A\n"});
        EXPECT_EQ(file(0)->model != nullptr, *fault == '\0') << text;
        EXPECT_EQ(file(0)->like != nullptr, *fault == '\0') << text;
        EXPECT_EQ(out.text().empty(), *fault == '\0') << out.text();
        EXPECT_TRUE(out.has(fault)) << text << out.text();
        EXPECT_EQ(cfg_file_find("X123"), file(0));
        bool refused = false; // by kelo-host's check of the file
        for (const auto& one : kelo_host::check_profiles({folder.path}))
            refused |= one.text.find("the file brings no module of its own") != one.text.npos;
        EXPECT_EQ(refused, *fault != '\0') << text;
        EXPECT_STREQ(cfg_value(file(0), "AT_GSM"), "AT+A");
    }
}

// Catches: a module of the library's that walks a file's flow, and a choice by the order of files.
TEST_F(ByFile, ANameOfTheLibraryWinsThenTheLongestThenTheFirst)
{
    captured out;
    read({"MODEL => LE910C1\nLIKE => LE910\n", "MODEL => SIMCOM\nLIKE => UC20\n",
          "MODEL => SIMCOM_SIM7600\nLIKE => RM500Q\n", "MODEL => SIMCOM\nLIKE => EC25\n",
          "MODEL => EC25-X\nLIKE => UC20\n"});
    EXPECT_TRUE(
        out.has("profiles/3.conf: MODEL 'SIMCOM' is passed over: another file has the same and "
                "comes first, /tmp/profiles/1.conf"));
    constexpr int none = -1;
    const std::tuple<const char*, const char*, int, const char*> rows[] = {
        {"LE910C1-EU", "25.30.005", 0, "LE910"},
        {"LE910", "25.30.005", none, "LE910"},
        {"LE910-EUG", "25.30.005", none, ""}, // as without files
        {"SIMCOM_SIM7600G", "LE20B04", 2, "RM500Q"},
        {"SIMCOM_SIM7080", "1351B05", 1, "UC20"},
        {"SIMCO", "1351B05", none, ""},
        {"EC25-X", "EC25EFAR06A08M4G", none, "EC25E"}, // its revision has a flow
        {"EC25-X", "1.0", 4, "UC20"}};
    for (const auto& [model, revision, number, like] : rows) {
        const cfg_file* const found = number == none ? nullptr : file(number);
        EXPECT_EQ(module_brought(model, revision), found) << model << " " << revision;
        EXPECT_STREQ(module_alike(model, revision), found != nullptr ? like : model);
        for (int flow = FLOW_START; flow <= FLOW_SMS_PDU; flow++) {
            const auto steps = module_steps(model, revision, flow);
            const auto others =
                *like == '\0' ? std::span<const flow_step>() : module_steps(like, like, flow);
            EXPECT_EQ(steps.data(), others.data()) << model << " " << revision << ", flow " << flow;
        }
    }
}

// Catches: an answer with a prefix that is no model or revision, flows that are made ahead of the
// rest of the answer, or of another profile; values of no module that the library knows.
TEST_F(ByFile, AModuleIsAskedWhatItsFileHolds)
{
    captured out;
    gsm_mobile& rec = g_mobile;
    read({"MODULE => SIMC\nAT_GSM => AT+WRONG\n",
          "MODEL => SIMCOM\nLIKE => RM500Q\nAT_GSM => AT+RIGHT\nAT_NETWORK_AUTO => AT+M=$MODE\n"
          "AT_CBAND => AT+B=$BAND\n"});
    const auto feed = [&](at_handler handler, std::string line) {
        handler(&rec, line.data());
        int nodes = 0;
        for (list_head* node = start_sim1_list.next; node != &start_sim1_list; node = node->next)
            nodes++;
        return nodes;
    };
    for (const char* line : {"AT+CGMM", "RDY", "+CGMM: \"FIBO-1\"", "+CSQ: 24,99"})
        feed(cgmm_handler, line);
    EXPECT_STREQ(rec.model, "");
    feed(cgmm_handler, "+CGMM: \"SIMCOM_SIM7600G-H\"\r");
    EXPECT_STREQ(rec.model, "SIMCOM_SIM7600G");
    EXPECT_STREQ(module_unlisted(), "");
    EXPECT_EQ(feed(cgmr_handler, "AT+CGMR"), 0);
    EXPECT_EQ(feed(cgmr_handler, "+CGMR: LE20B04SIM7600G22"), 0);
    EXPECT_STREQ(rec.revision, "LE20B04SIM7600G22");
    EXPECT_GT(feed(cgmr_handler, "OK"), 10);
    std::string texts;
    at_info* mode = nullptr;
    for (list_head* node = start_sim1_list.next; node != &start_sim1_list; node = node->next) {
        at_info* const at = at_of(node);
        texts += at->cmd_template != nullptr ? at->cmd_template + std::string(" ") : "";
        mode = at->pre_treat == netmode_pre_treat ? at : mode;
    }
    EXPECT_EQ(texts, "AT+M=$MODE AT+RIGHT ");
    rec.scanmode = 3;
    ASSERT_NE(mode, nullptr);
    EXPECT_EQ(netmode_pre_treat(&rec, mode), 0);
    EXPECT_STREQ(mode->cmd, "AT+M=LTE");
    // A mask is no likeness, and its placeholder no command.
    at_info* const band = at_info_create(1, nullptr, nullptr, 3, 0, 0, general_handler, 1,
                                         cband_pre_treat, 1, "AT+B=$BAND");
    EXPECT_EQ(cband_pre_treat(&rec, band), at_not_wanted);
    at_info_free(band);
}

// The end of the answer may be lost: the revision is then asked for no more.
TEST_F(ByFile, FlowsAreMadeAtTheNextStartAtTheLatest)
{
    captured out;
    gsm_mobile& rec = g_mobile;
    read({"MODEL => SIMCOM\nLIKE => UC20\n"});
    text_set(rec.model, "SIMCOM_SIM7600G");
    std::string line = "LE20B04SIM7600G22";
    cgmr_handler(&rec, line.data());
    EXPECT_TRUE(list_empty(&start_sim1_list));
    at_info* const at =
        at_info_create(1, nullptr, "AT+CGMR", 3, 0, 0, cgmr_handler, 1, cgmr_pre_treat, 1, nullptr);
    EXPECT_EQ(cgmr_pre_treat(&rec, at), at_not_wanted);
    EXPECT_FALSE(list_empty(&start_sim1_list));
    at_info_free(at);
}
