// SPDX-License-Identifier: MIT
#pragma once

// Everything a host needs.
// The simulated machine for hosts' tests has a header of its own:
// <KMVDriveLibrary/testing/SimulatedPlatform.h>.
#include <KMVDriveLibrary/Attributes.h>
#include <KMVDriveLibrary/CodexExtendedAttributes.h>
#include <KMVDriveLibrary/CodexVirtualFileSystemWrapper.h>
#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/DissentStatus.h>
#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/FirstList.h>
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/IOMeter.h>
#include <KMVDriveLibrary/KMVAPFSContainerWrapper.h>
#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>
#include <KMVDriveLibrary/KMVDriveDictionaryInterpreter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/KMVDriveLibraryVersion.h>
#include <KMVDriveLibrary/KMVDriveWrapperManager.h>
#include <KMVDriveLibrary/KMVExtendedAttributeGatherer.h>
#include <KMVDriveLibrary/LoadMeter.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/Semaphore.h>
#include <KMVDriveLibrary/Space.h>
#include <KMVDriveLibrary/StorageDevices.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/UUID.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>
#include <KMVDriveLibrary/host/OrvaneApp.h>
#include <KMVDriveLibrary/host/OrvaneDataIO.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>
