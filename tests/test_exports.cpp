// The shared library shows exactly its C exports: nothing of the C++
// inside (no template instantiations, no engine classes) leaks out.
#include <dlfcn.h>
#include <elf.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

const std::set<std::string> kExports = {
    "AI_system_over",
    "AI_system_init_swaphead",
    "AI_swap_head",
    "AI_system_init_TBN",
    "AI_system_init_TBN_g",
    "AI_system_init_TBN_g2",
    "AI_get_TBN",
    "AI_get_TBN_g",
    // Eyes and debug.
    "AI_system_init_eyeball",
    "AI_add_eyeball",
    "AI_system_init_eyeball_kova",
    "AI_system_init_eyelash_kova",
    "AI_add_eyeball_kova",
    "AI_add_eyelash_kova",
    "debug_get_head_data_from_ply",
    "debug_get_head_data_from_obj",
    "debug_apply_one_pose_save_obj",
#if defined(MERIDIAN_WITH_RGBD)
    "AI_system_init_Choose4RGBD",
    "AI_Choose4RGBD_input_1_rgbd",
    "AI_Choose4RGBD_get_final_4_rgbd",
    "AI_Choose4RGBD_clear",
    "debug_test_RGBD_choose4",
#endif
    "AI_system_initDynamic_BS",
    "AI_get_BS",
};

// Names of the defined global and weak symbols in an ELF64 file's dynamic
// symbol table.
std::set<std::string> definedDynamicSymbols(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    std::set<std::string> names;
    if (bytes.size() < sizeof(Elf64_Ehdr)) return names;
    const auto* header = reinterpret_cast<const Elf64_Ehdr*>(bytes.data());
    const auto* sections = reinterpret_cast<const Elf64_Shdr*>(bytes.data() + header->e_shoff);
    for (int s = 0; s < header->e_shnum; ++s) {
        if (sections[s].sh_type != SHT_DYNSYM) continue;
        const char* strings = bytes.data() + sections[sections[s].sh_link].sh_offset;
        const auto* symbols =
            reinterpret_cast<const Elf64_Sym*>(bytes.data() + sections[s].sh_offset);
        const size_t count = sections[s].sh_size / sizeof(Elf64_Sym);
        for (size_t i = 1; i < count; ++i) {
            const int binding = ELF64_ST_BIND(symbols[i].st_info);
            if (symbols[i].st_shndx == SHN_UNDEF) continue;
            if (binding != STB_GLOBAL && binding != STB_WEAK) continue;
            names.insert(strings + symbols[i].st_name);
        }
    }
    return names;
}

TEST(Exports, OnlyTheCInterfaceIsVisible) {
    const std::set<std::string> visible = definedDynamicSymbols(MERIDIAN_LIBRARY_PATH);
    EXPECT_EQ(visible, kExports);
}

TEST(Exports, EveryNameResolvesThroughDlopen) {
    void* library = dlopen(MERIDIAN_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string& name : kExports)
        EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;
    using Over = int (*)();
    EXPECT_EQ(reinterpret_cast<Over>(dlsym(library, "AI_system_over"))(), 1);
    // One run function serves both aligner kinds under two names.
    EXPECT_EQ(dlsym(library, "AI_add_eyelash_kova"), dlsym(library, "AI_add_eyeball_kova"));
    dlclose(library);
}

}  // namespace
