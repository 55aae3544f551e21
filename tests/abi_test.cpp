// The exported binary interface: which symbols libiqa.so exports, and the virtual-table slots
// that hosts and the device service call through.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "McsRecordingService.h"
#include "tests/support/LogCapture.h"

namespace {

template <typename Fn>
Fn Slot(const void* object, int index) {
    const void* const* vtable = *static_cast<const void* const* const*>(object);
    return reinterpret_cast<Fn>(const_cast<void*>(vtable[index]));
}

TEST(Abi, ExportsExactlyThePublicSurface) {
    void* lib = dlopen(IQA_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, lib) << dlerror();
    const char* exported[] = {
        "_ZN3IQA14IqaTaskManagerC1Ev",
        "_ZN3IQA14IqaTaskManagerD1Ev",
        "_ZN3IQA14IqaTaskManager10AddRequestERK7Request",
        "_ZN3IQA14IqaTaskManager13SetStopStatusEb",
        "_ZN3IQA14IqaTaskManager7GetSsimER12IqaImageInfo",
        "_ZN3IQA14IqaProcessData9DownScaleEPKhiPhii",
        "_ZN3IQA14IqaProcessData16ConvertRGBToNV12EPKhiiPh",
        "_ZN3IQA10IqaCompSim16CalculateRgbSsimEPKhS2_ii",
        "_ZN3IQA13IqaAnomDetect16CheckGreenScreenEPKhjji",
        "_ZN3IQA9IqaUpLoad13UpLoadBigDataERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEh",
        "_Z12IsFileExistsRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
        "_ZTVN3IQA14IqaProcessNodeE",
    };
    for (const char* name : exported) {
        EXPECT_NE(nullptr, dlsym(lib, name)) << name;
    }
    // SumBand: a kernel built for two instruction sets, whose dispatching symbol GCC would export.
    const char* hidden[] = {"_ZN3IQA9BoxReduceEPKhilPhii", "_ZN3IQA9RgbToNv12EPKhiiPh",
                            "_ZN3IQA14IqaTaskManager16ClearQueueLockedEv",
                            "_ZN3IQA7SumBandEPKhS1_liPNS_8BandSumsE"};
    for (const char* name : hidden) {
        EXPECT_EQ(nullptr, dlsym(lib, name)) << name;
    }
    dlclose(lib);
}

TEST(Abi, ProcessImageIsTheThirdSlotOfEveryNode) {
    iqa_test::LogCapture log;
    using ProcessFn = bool (*)(IQA::IqaProcessNode*, IqaImageInfo&);
    IqaImageInfo info{};
    info.thumbDecoderType = 9;  // no decoder: the preparation stage fails at once
    IQA::IqaProcessData prepare;
    EXPECT_FALSE(Slot<ProcessFn>(&prepare, 2)(&prepare, info));
    EXPECT_TRUE(log.Contains("[Decoder]:begin decoder"));
    IQA::IqaCompSim ssim;
    EXPECT_FALSE(Slot<ProcessFn>(&ssim, 2)(&ssim, info));
    EXPECT_TRUE(log.Contains("[ProcessImage]:begin CalculateRgbSsim"));
}

// The stand-in answers every operation as the device's service does when it accepts a call: 0.
TEST(Abi, UploadEventIsTheSeventhServiceOperationAndEveryCallSucceeds) {
    using ReservedFn = int (*)(MCS::MCSService*);
    using UploadFn = int (*)(MCS::MCSService*, const int&, const IQA::BigDataRecord&);
    MCS::MCSService plain;
    MCS::RecordingService service;
    IQA::BigDataRecord record = {};
    record.anomType = 1;
    const int eventId = 8;
    for (MCS::MCSService* s : {&plain, static_cast<MCS::MCSService*>(&service)}) {
        for (int slot = 0; slot < 6; ++slot) {
            EXPECT_EQ(0, Slot<ReservedFn>(s, slot)(s)) << slot;
        }
        EXPECT_EQ(0, Slot<UploadFn>(s, 6)(s, eventId, record));
    }
    ASSERT_EQ(1u, service.Events().size());
    EXPECT_EQ(8, service.Events()[0].eventId);
    EXPECT_EQ(1, service.Events()[0].record.anomType);
}

}  // namespace
