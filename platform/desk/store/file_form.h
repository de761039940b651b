// What a data-model file calls the elements and attributes that are not nodes' own names.
#pragma once

/* A row of an array, and the shape of its new rows. */
constexpr char kInstanceElement[] = "Instance", kTemplateElement[] = "Template";

/* The attributes that are no part of a node's attribute set: an Instance's number, a node's notify
   attribute, and the highest number that an array ever used. */
constexpr char kIdAttribute[] = "id", kNotifyAttribute[] = "notify", kLastAttribute[] = "last";

/* An Instance and a Template need none: they are objects. */
constexpr char kTypeAttribute[] = "type";
