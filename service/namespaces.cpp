// The one definition of the XML namespace table that every program of the project uses.
#include "soapH.h"
#include "nvsoap.nsmap"
