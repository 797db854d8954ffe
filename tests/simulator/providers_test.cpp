// What providers say they support, and what they refuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/simulator/backup.h"

namespace varnel::test {
namespace {

simulator::Provider Supporting(simulator::Provider provider, LONG kinds) {
  provider.supports = kinds;
  return provider;
}

// What the first volume of a set in this context answers, with the provider named.
HRESULT FirstVolume(LONG context, const GUID& provider) {
  Backup backup(Phase::gathered, context);
  backup.StartSet();
  return backup.AddVolume(L"E:\\", provider);
}

TEST_F(ShadowCopyService, TakesAProvidersWordForTheKindsOfCopiesThatItMakes) {
  constexpr LONG kPlex = VSS_VOLSNAP_ATTR_PLEX;
  constexpr LONG kDifferential = VSS_VOLSNAP_ATTR_DIFFERENTIAL;
  struct Case {
    simulator::Provider provider;
    bool transportable = false;
    bool differential = false;
    bool plex = false;
  };
  const Case cases[] = {
      {kHardwareProvider, true, true, true},
      {kSoftwareProvider, false, true, false},
      {kSystemProvider, false, true, false},
      {Supporting(kHardwareProvider, kPlex), false, false, true},
      {Supporting(kHardwareProvider, 0), false, false, false},
      {Supporting(kSoftwareProvider, VSS_VOLSNAP_ATTR_TRANSPORTABLE | kPlex), true, false, true},
      {Supporting(kSystemProvider, VSS_VOLSNAP_ATTR_TRANSPORTABLE), false, true, false},
  };
  for (const Case& tried : cases) {
    SCOPED_TRACE(WideToUtf8(tried.provider.name) + " " + std::to_string(tried.provider.supports.value_or(-1)));
    Install(HostWithProviders({tried.provider}));
    const auto expected = [](bool supported) { return supported ? S_OK : VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER; };
    EXPECT_THAT(FirstVolume(kTransportable, tried.provider.id), Gives(expected(tried.transportable)));
    EXPECT_THAT(FirstVolume(kDifferential, tried.provider.id), Gives(expected(tried.differential)));
    EXPECT_THAT(FirstVolume(kPlex, tried.provider.id), Gives(expected(tried.plex)));
    EXPECT_THAT(FirstVolume(VSS_CTX_BACKUP, tried.provider.id), Gives(S_OK));
  }
}

TEST_F(ShadowCopyService, MakesAndImportsTransportableCopiesOfASoftwareProvider) {
  Install(HostWithProviders({Supporting(kSoftwareProvider, VSS_VOLSNAP_ATTR_TRANSPORTABLE)}));
  Backup backup(Phase::snapshotDone, kTransportable);
  EXPECT_THAT(Copies(), IsEmpty());
  const Bstr xml(backup.Document());
  backup.Release();

  Backup importing;
  ASSERT_THAT(importing->InitializeForBackup(xml.Get()), Gives(S_OK));
  host().model().providers = {kSoftwareProvider};
  EXPECT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_E_PROVIDER_NOT_REGISTERED))
      << "it does not move copies any more";
  host().model().providers = {Supporting(kSoftwareProvider, VSS_VOLSNAP_ATTR_TRANSPORTABLE)};
  ASSERT_THAT(importing.Run(&IVssBackupComponents::ImportSnapshots), Gives(VSS_S_ASYNC_FINISHED));
  ASSERT_THAT(Copies(), SizeIs(1));
  EXPECT_EQ(Copies()[0]->attributes, Context(kTransportable, VSS_VOLSNAP_ATTR_IMPORTED));
  EXPECT_EQ(Copies()[0]->diskNumber, 3U) << "a disk of its own";
  EXPECT_THAT(importing->BreakSnapshotSet(Copies()[0]->setId), Gives(S_OK));
}

TEST_F(ShadowCopyService, LeavesVolumesAloneThatAProviderDoesNotSupport) {
  simulator::Provider picky = kHardwareProvider;
  picky.unsupportedVolumes = {VolumeName(2)};
  Install(HostWithProviders({picky}));
  Backup backup(Phase::setStarted);
  const auto isSupported = [&](const GUID& provider, std::wstring volume) {
    BOOL supported = 7;
    EXPECT_THAT(backup->IsVolumeSupported(provider, volume.data(), &supported), Gives(S_OK));
    return supported;
  };
  EXPECT_EQ(isSupported(kHardware, L"E:\\"), TRUE);
  EXPECT_EQ(isSupported(kHardware, L"F:\\"), FALSE);
  EXPECT_EQ(isSupported(GUID{}, L"F:\\"), FALSE);
  EXPECT_THAT(backup.AddVolume(L"F:\\", kHardware), Gives(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER));
  EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(VSS_E_VOLUME_NOT_SUPPORTED));
  host().model().providers.push_back(kSystemProvider);
  EXPECT_EQ(isSupported(GUID{}, L"F:\\"), TRUE) << "the next provider does";
  EXPECT_THAT(backup.AddVolume(L"F:\\"), Gives(S_OK));
}

HostModel HostWithVetoAt(simulator::ProviderStep step) {
  simulator::Provider provider = kHardwareProvider;
  provider.veto = step;
  return HostWithProviders({provider, kSystemProvider});
}

TEST_F(ShadowCopyService, TellsOfAProvidersVetoWhenTheVolumeIsAdded) {
  Install(HostWithVetoAt(simulator::ProviderStep::beginPrepare));
  EXPECT_THAT(FirstVolume(VSS_CTX_BACKUP, kHardware), Gives(VSS_E_PROVIDER_VETO));
  EXPECT_THAT(FirstVolume(VSS_CTX_BACKUP, GUID{}), Gives(VSS_E_PROVIDER_VETO)) << "it does support the volume";
  EXPECT_THAT(FirstVolume(VSS_CTX_BACKUP, kSystem), Gives(S_OK));
}

TEST_F(ShadowCopyService, FailsTheSetAtTheStepThatAProviderRefuses) {
  const auto snapshot = [this](simulator::ProviderStep step) {
    Install(HostWithVetoAt(step));
    Backup backup(Phase::prepared);
    EXPECT_THAT(backup.Snapshot(), Gives(VSS_E_PROVIDER_VETO));
    EXPECT_THAT(Copies(), IsEmpty());
    EXPECT_THAT(Told(std::nullopt), ElementsAre(L"SqlServerWriter"));
    EXPECT_THAT(backup.States(), Each(VSS_WS_STABLE));
    EXPECT_THAT(backup.Complete(), Gives(VSS_E_BAD_STATE));
  };
  snapshot(simulator::ProviderStep::endPrepare);
  EXPECT_THAT(Told(WriterEvent::freeze), IsEmpty());
  snapshot(simulator::ProviderStep::commit);
  EXPECT_THAT(Told(WriterEvent::freeze), ElementsAre(L"SqlServerWriter"));
  EXPECT_THAT(Told(WriterEvent::thaw), IsEmpty());
}

TEST_F(ShadowCopyService, SaysThatThereAreNoProvidersToList) {
  Install(HostWithProviders({}));
  Backup backup(Phase::initialized);
  ComPtr<IVssEnumObject> found;
  EXPECT_THAT(backup->Query(GUID{}, VSS_OBJECT_NONE, VSS_OBJECT_PROVIDER, found.Put()), Gives(S_FALSE));
  ASSERT_TRUE(found);
  ULONG fetched = 9;
  VSS_OBJECT_PROP object{};
  EXPECT_THAT(found->Next(1, &object, &fetched), Gives(S_FALSE));
  EXPECT_EQ(fetched, 0U);
}

}  // namespace
}  // namespace varnel::test
