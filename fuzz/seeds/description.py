# SPDX-License-Identifier: Apache-2.0
"""Descriptions of packages: the seeds of fuzz-description."""
from seeds.board import text, wrong_texts


def component(identifier=1, **more):
    return {"ComponentClassification": 10, "ComponentIdentifier": identifier, "ComponentOptions": [],
            "RequestedComponentActivationMethod": [5], "ComponentVersionString": "one"} | more


def record(components, descriptors, **more):
    return {"ComponentImageSetVersionString": "set", "ApplicableComponents": components,
            "Descriptors": descriptors} | more


def description(components, records, images=None, **header):
    whole = {"PackageHeaderInformation": {
        "PackageHeaderIdentifier": "F018878CCB7D49439800A02F059ACA02",
        "PackageHeaderFormatVersion": 1, "PackageVersionString": "all"} | header,
        "FirmwareDeviceIdentificationArea": records, "ComponentImageInformationArea": components}
    return bytes([len(components) if images is None else images]) + text(whole)


def description_seeds():
    vendor = {"DescriptorType": 0, "DescriptorData": "B315"}
    own = {"DescriptorType": "0xffff", "VendorDefinedDescriptorTitleString": "BX",
           "VendorDefinedDescriptorData": "0102"}
    enterprise = {"DescriptorType": 1, "DescriptorData": "01020304"}
    good = description([component()], [record([0], [vendor, own])],
                       PackageReleaseDateTime="17/03/2024 10:20:30")
    yield "whole", good
    yield "two", description([component(), component(2)],
                             [record([0, 1], [vendor]), record([1], [enterprise])])
    yield "stamp", description([component(ComponentOptions=[0, 1], ComponentComparisonStamp="0x16290000")],
                               [record([0], [vendor], DeviceUpdateOptionFlags=[0, 31])])
    yield "no-component", description([], [record([], [vendor])])
    yield "many-components", description([component(i) for i in range(9)],
                                         [record(list(range(9)), [vendor])])
    yield "utf-8", description([component(ComponentVersionString="\u00e9\u2603")], [record([0], [own])])
    yield "nul", description([component(ComponentVersionString="a\0b")], [record([0], [vendor])])
    yield "no-day", description([component()], [record([0], [vendor])],
                                PackageReleaseDateTime="31/06/2024 10:20:30")
    yield "component-twice", description([component()], [record([0, 0], [vendor])])
    yield "too-few-images", description([component()], [record([0], [vendor])], 0)
    for name, content in wrong_texts(good[1:]):
        yield name, b"\1" + content
