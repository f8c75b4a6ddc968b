// All headers of the package xml: documents, parser, readers and writers (applications).
#pragma once

#include "resmgt/xml/xmlAttributeList.h"
#include "resmgt/xml/xmlBaseElement.h"
#include "resmgt/xml/xmlDocument.h"
#include "resmgt/xml/xmlDocumentBuilder.h"
#include "resmgt/xml/xmlElement.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlNode.h"
#include "resmgt/xml/xmlParser.h"
#include "resmgt/xml/xmlParserProtocolSax.h"
#include "resmgt/xml/xmlReader.h"
#include "resmgt/xml/xmlStreamer.h"
#include "resmgt/xml/xmlWriter.h"
