// The plug-in as the host loads it: factory, query-interface, reference counts.
#include <gtest/gtest.h>

#include <cstring>

#include "plugin/GeneratorEntryPoints.h"
#include "plugin/PluginFactory.h"
#include "plugin/PluginIDs.h"
#include "plugin/shim/HostShim.h"

namespace {

CFUUIDRef constant(const unsigned char (&b)[16]) {
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8],
                                          b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
}
CFUUIDRef generatorType() { return constant(qh::plugin::kGeneratorTypeID); }
CFUUIDBytes callbacksInterface() { return CFUUIDGetUUIDBytes(constant(qh::plugin::kGeneratorCallbacksInterfaceID)); }

// IUnknown's interface, which the plug-in does not answer for.
const unsigned char kIUnknown[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};

class PluginHostTest : public ::testing::Test {
protected:
    void SetUp() override {
        factoryID_ = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR(QH_PLUGIN_FACTORY_UUID));
        ASSERT_NE(factoryID_, nullptr);
        liveBefore_ = qh::shim::liveObjectCount();
        instancesBefore_ = qh::shim::factoryInstanceCount(factoryID_);
    }
    void TearDown() override {
        // Every UUID the plug-in made is released, every instance unregistered.
        EXPECT_EQ(qh::shim::liveObjectCount(), liveBefore_);
        EXPECT_EQ(qh::shim::factoryInstanceCount(factoryID_), instancesBefore_);
        CFRelease(factoryID_);
    }
    CFUUIDRef factoryID_ = nullptr;
    long liveBefore_ = 0;
    long instancesBefore_ = 0;
};

QuickLookGeneratorPluginType* make() {
    return static_cast<QuickLookGeneratorPluginType*>(QuickLookGeneratorPluginFactory(kCFAllocatorDefault, generatorType()));
}

TEST_F(PluginHostTest, FactoryQueryInterfaceAndInstances) {
    CFUUIDRef otherType = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR(QH_PLUGIN_FACTORY_UUID));
    EXPECT_EQ(QuickLookGeneratorPluginFactory(kCFAllocatorDefault, otherType), nullptr);
    CFRelease(otherType);

    auto* instance = make();
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->refCount, 1u);
    EXPECT_TRUE(CFEqual(instance->factoryID, factoryID_));
    EXPECT_EQ(qh::shim::factoryInstanceCount(factoryID_), instancesBefore_ + 1);

    // Until the callbacks interface is asked for, only the IUnknown slots are set.
    QLGeneratorInterfaceStruct* table = instance->conduitInterface;
    EXPECT_EQ(table->_reserved, nullptr);
    EXPECT_EQ(table->QueryInterface, QuickLookGeneratorQueryInterface);
    EXPECT_EQ(table->AddRef, QuickLookGeneratorPluginAddRef);
    EXPECT_EQ(table->Release, QuickLookGeneratorPluginRelease);
    EXPECT_EQ(table->GenerateThumbnailForURL, nullptr);
    EXPECT_EQ(table->GeneratePreviewForURL, nullptr);

    LPVOID out = reinterpret_cast<LPVOID>(0x1);
    CFUUIDBytes unknown;
    std::memcpy(&unknown, kIUnknown, sizeof unknown);
    EXPECT_EQ(table->QueryInterface(instance, unknown, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(instance->refCount, 1u);
    EXPECT_EQ(table->GeneratePreviewForURL, nullptr);

    EXPECT_EQ(table->QueryInterface(instance, callbacksInterface(), &out), S_OK);
    EXPECT_EQ(out, instance);
    EXPECT_EQ(instance->refCount, 2u);
    EXPECT_EQ(table->GenerateThumbnailForURL, GenerateThumbnailForURL);
    EXPECT_EQ(table->CancelThumbnailGeneration, CancelThumbnailGeneration);
    EXPECT_EQ(table->GeneratePreviewForURL, GeneratePreviewForURL);
    EXPECT_EQ(table->CancelPreviewGeneration, CancelPreviewGeneration);
    EXPECT_EQ(table->Release(instance), 1u);

    // A second instance is independent: filling one table leaves the other's template copy alone.
    auto* second = make();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second->conduitInterface, table);
    EXPECT_EQ(qh::shim::factoryInstanceCount(factoryID_), instancesBefore_ + 2);
    EXPECT_EQ(second->conduitInterface->GeneratePreviewForURL, nullptr);
    EXPECT_EQ(QuickLookGeneratorPluginAddRef(second), 2u);
    EXPECT_EQ(QuickLookGeneratorPluginRelease(second), 1u);
    EXPECT_EQ(QuickLookGeneratorPluginRelease(second), 0u);
    EXPECT_EQ(qh::shim::factoryInstanceCount(factoryID_), instancesBefore_ + 1);
    EXPECT_EQ(table->Release(instance), 0u);
}

}  // namespace
