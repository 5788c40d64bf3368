"""The features of a camera for camera_server.cc, as a GenICam document: registers of the simulator,
and some of no effect."""


def _register(name, address, mode="RW"):
    return (f'<IntReg Name="{name}"><Address>{address}</Address><Length>4</Length><AccessMode>{mode}'
            "</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>"
            "</IntReg>")


def _integer(name, address, limits):
    return (f'<Integer Name="{name}"><pValue>{name}R</pValue>{limits}</Integer>'
            + _register(name + "R", address))


def _entries(name, address, **values):
    entries = "".join(f'<EnumEntry Name="{key}"><Value>{value}</Value></EnumEntry>'
                      for key, value in values.items())
    return (f'<Enumeration Name="{name}">{entries}<pValue>{name}R</pValue></Enumeration>'
            + _register(name + "R", address))


def _constant(kind, name, value):
    return f'<{kind} Name="{name}"><Value>{value}</Value></{kind}>'


def _command(name, value):
    return (f'<Command Name="{name}"><pValue>AcquisitionR</pValue><CommandValue>{value}'
            "</CommandValue></Command>")


DOCUMENT = "".join([
    '<?xml version="1.0" encoding="utf-8"?><RegisterDescription ModelName="Fake" '
    'VendorName="Aravis" StandardNameSpace="None" SchemaMajorVersion="1" SchemaMinorVersion="0" '
    'SchemaSubMinorVersion="1" MajorVersion="1" MinorVersion="0" SubMinorVersion="0" '
    'ProductGuid="0" VersionGuid="0" xmlns="http://www.genicam.org/GenApi/Version_1_0">',
    '<Category Name="Root"><pFeature>Width</pFeature></Category><Port Name="Device"/>',
    _register("SensorWidth", 0x11c, "RO"), _register("SensorHeight", 0x118, "RO"),
    _integer("Width", 0x100, "<Min>8</Min><pMax>SensorWidth</pMax><Inc>8</Inc>"),
    _integer("Height", 0x104, "<Min>1</Min><pMax>SensorHeight</pMax>"),
    _integer("OffsetX", 0x130, "<Min>0</Min><Max>1024</Max>"),
    _integer("OffsetY", 0x134, "<Min>0</Min><Max>1024</Max>"),
    _integer("BinningHorizontal", 0x1000, "<Min>0</Min><Max>4</Max>"),
    _integer("DecimationVertical", 0x1004, "<Min>0</Min><Max>4</Max>"),
    '<Boolean Name="ReverseX"><pValue>ReverseXR</pValue></Boolean>', _register("ReverseXR", 0x1008),
    _entries("PixelFormat", 0x128, Mono8=0x01080001, Mono16=0x01100007, Mono10p=0x010a0046,
             Mono12p=0x010c0047, RGB8=0x02180014, Coord3D_C16=0x011000b8),
    _entries("Scan3dDistanceUnit", 0x100c, Pixel=0, Millimeter=1),
    _constant("Float", "Scan3dCoordinateScale", 0.03125),
    _constant("Float", "Scan3dCoordinateOffset", 100),
    _constant("Float", "Scan3dInvalidDataValue", 0x0104),
    '<IntSwissKnife Name="PayloadSize"><pVariable Name="W">Width</pVariable><pVariable Name="H">'
    'Height</pVariable><pVariable Name="P">PixelFormat</pVariable><pVariable Name="E">Extra'
    '</pVariable><Formula>W * H * ((P&gt;&gt;16)'
    "&amp;0xFF) / 8 + E</Formula></IntSwissKnife>", _register("Extra", 0x1014),
    '<Boolean Name="ChunkModeActive"><pValue>ChunkModeR</pValue></Boolean>',
    _register("ChunkModeR", 0x1018), _entries("ChunkSelector", 0x101c, EncoderValue=0),
    '<Boolean Name="ChunkEnable"><pValue>ChunkEnableR</pValue></Boolean>',
    _register("ChunkEnableR", 0x1020), '<Port Name="Chunk"><ChunkID>1234</ChunkID></Port>',
    '<IntReg Name="ChunkEncoderValue"><Address>0</Address><Length>8</Length><AccessMode>RO'
    "</AccessMode><pPort>Chunk</pPort><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>",
    _constant("Integer", "TLParamsLocked", 0),
    _entries("TriggerSelector", 0x1010, FrameStart=0), _entries("TriggerMode", 0x300, Off=0, On=1),
    _entries("TriggerSource", 0x304, Line0=0, Software=1),
    _entries("TriggerActivation", 0x308, RisingEdge=0),
    _entries("AcquisitionMode", 0x12c, Continuous=1),
    _command("AcquisitionStart", 1), _command("AcquisitionStop", 0),
    _register("AcquisitionR", 0x124),
    '<Float Name="AcquisitionFrameRate"><pValue>Rate</pValue></Float><Converter Name="Rate">'
    "<FormulaTo>(1000000 / FROM)</FormulaTo><FormulaFrom>(1000000 / TO)</FormulaFrom>"
    "<pValue>Period</pValue></Converter>",
    _integer("Period", 0x138, "<Min>1000</Min><Max>10000000</Max>"),
    "</RegisterDescription>"])
