// Package deviceProtocol: what a managed device implements, and standard devices (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devANOFifo.h"
#include "resmgt/deviceProtocol/devANOTrace.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdDevice.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStdProperty.h"
#include "resmgt/deviceProtocol/devMDStdPropertySet.h"
#include "resmgt/deviceProtocol/devMDStdStream.h"
#include "resmgt/deviceProtocol/devMDStdSyncSeqPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"
#include "resmgt/deviceProtocol/devMDStream.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "resmgt/deviceProtocol/devReceiverWait.h"
