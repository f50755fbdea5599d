#pragma once

// The whole public API of tessel_link. The helpers for a host's own tests
// (tessel_link/testing/) are included on their own.

#include <tessel_link/version.h>

// Core runtime
#include <tessel_link/common/assert.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/error_origin.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/common/non_copyable.h>
#include <tessel_link/common/optional.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/common/unicode.h>

// File layer
#include <tessel_link/file/file_object.h>
#include <tessel_link/file/dir_object.h>
#include <tessel_link/file/file_identifier.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/file/token_substitution.h>
#include <tessel_link/file/zip_archive.h>
#include <tessel_link/file/usn_journal.h>
#include <tessel_link/file/dir_notification.h>
#include <tessel_link/file/backup_stream.h>

// XML documents
#include <tessel_link/xml/xml_tag.h>

// Serialization
#include <tessel_link/serialize/blob.h>
#include <tessel_link/serialize/category_holder.h>
#include <tessel_link/serialize/credentials.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/errors.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/serialize/serializer.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

// Records of the interface definitions, generated at build time, and their catalogue
#include <tessel_link/xidl/catalogue.h>
#include <tessel_link/xidl/records.h>

// Binding: requests and the call cycle
#include <tessel_link/binding/job_control.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/binding/service_dispatcher.h>

// Facade: the entry points, components and their interfaces (generated at build time)
#include <tessel_link/components/components.h>
#include <tessel_link/facade/component.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/facade/event_interfaces.h>
#include <tessel_link/facade/catalogue.h>
#include <tessel_link/facade/make_proxy.h>

// POR, the value tree
#include <tessel_link/por/assign.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/data_accessor.h>
#include <tessel_link/por/diff_names.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/fwd.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/item_processor.h>
#include <tessel_link/por/kinds.h>
#include <tessel_link/por/modification.h>
#include <tessel_link/por/pattern.h>
#include <tessel_link/por/plain_object.h>
#include <tessel_link/por/print.h>
#include <tessel_link/por/root_holder.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/unit_accumulator.h>
#include <tessel_link/por/unit_name.h>
#include <tessel_link/por/unit_walker.h>
#include <tessel_link/por/util.h>
#include <tessel_link/por/view.h>
#include <tessel_link/por/visitors.h>

// Service data types over unit trees
#include <tessel_link/gtob/action.h>
#include <tessel_link/gtob/slicing_configuration.h>
