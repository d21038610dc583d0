// The page's side of the script bridge: the global functions that the map view calls, one line
// of script per command, and the JSON messages the page posts back ({type, key, payload} with
// the payload itself a JSON text). Data comes from the sandbox with the bearer token that the
// host hands over in the configuration or with ORVSDK_initAuth.
"use strict";

const DEFAULT_STYLE = {
  icons: { opacity: 1.0, radiusMeter: 5.0, name: "orvane", align: "center", vAlign: "bottom", followZoom: true },
  navigation: {
    radiusMeter: 5.0, strokeWidthMeter: 0.3, stroke: "#4965E7", strokeOpacity: 1.0, strokeLinecap: "round",
    strokeLinejoin: "round", jumpColor: "#2424b1", jumpOpacity: 1.0, jumpRadiusMeter: 0.4, animationTime: 0.0,
    navigationStep: 1.5, autoZoom: true, showVoronoy: false,
  },
  indication: {
    stroke: "#4965E7", radiusMeter: 2.0, sourceColor: "#f00", destColor: "#2424b1", opacity: 1.0,
    followZoom: false, iconVAlign: "bottom", iconHAlign: "right",
  },
  bookingLayer: {},
  darkMode: false,
};
const WALKING_SPEED = 1.4;  // metres per second, when the style names no speeds
const NEAR_DESTINATION_METERS = 2;
const METERS_PER_DEGREE = 111320;
const BOOKING_DAYS = 7;

const state = {
  config: null,
  token: null,
  initKey: null,
  initPending: false,  // the handshake waits for a token that the data route accepts
  building: null,
  floorIndex: 0,
  style: structuredClone(DEFAULT_STYLE),
  roomsHidden: false,
  resources: [],
  items: [],
  bookingLayer: null,  // {filter} while the layer is on
  bookingDate: null,  // the day the layer shows; today when not set
  bookingStartDate: null,  // the first day offered for booking; the shown day when not set
  bookingStatus: new Map(),
  selectedRoomId: null,
  selectedResourceId: null,
  highlighted: new Set(),
  pins: [],
  navigation: null,  // {legs, total, destination, fromMe, mode, near}
  marker: null,  // {mapId, x, y, roomId, areaId}
  markerActive: true,
  markerHeading: 0,
  compass: { heading: 0, enabled: false },
  followMe: false,
  tag: null,  // {tagid, follow}
  backgrounds: {},
  keyCount: 0,
};

const drawing = new VeloraDrawing.Drawing(document.getElementById("map"), handleMapClick);

// ---- Messages to the host ----------------------------------------------------------------

function post(type, payload, key) {
  const message = { type, payload: JSON.stringify(payload) };
  if (key !== undefined) {
    message.key = key;
  }
  const text = JSON.stringify(message);
  const handler = window.webkit && window.webkit.messageHandlers && window.webkit.messageHandlers.customJSHandler;
  if (handler) {
    handler.postMessage(text);
  } else {
    console.log("map event", text);
  }
}

// ---- Sandbox requests --------------------------------------------------------------------

class AuthError extends Error {}

async function api(method, path, body) {
  const headers = { Accept: "application/json" };
  if (state.token) {
    headers.Authorization = `Bearer ${state.token}`;
  }
  if (body !== undefined) {
    headers["Content-Type"] = "application/json";
  }
  const response = await fetch(path, { method, headers, body: body === undefined ? undefined : JSON.stringify(body) });
  if (response.status === 401) {
    post("authError", { status: "UNAUTHORIZED", message: `${method} ${path} needs a new access token`, statusCode: 401 });
    throw new AuthError(path);
  }
  if (!response.ok) {
    throw new Error(`${method} ${path} answered ${response.status}`);
  }
  return response.json();
}

async function loadBuilding() {
  const building = await api("GET", "/api/v1/map/building");
  state.building = building;
  state.resources = building.resources;
  state.items = building.items;
  const initial = state.config && state.config.initialMapId;
  const index = building.floors.findIndex((f) => f.mapId === initial);
  state.floorIndex = index >= 0 ? index : 0;
  redraw();
}

// The handshake: "success" or "error" with the key that ORVSDK_init returned. A 401 has
// already been reported as "authError"; the handshake then waits for ORVSDK_initAuth.
function completeInit() {
  const key = state.initKey;
  loadBuilding().then(() => {
    state.initPending = false;
    post("success", { status: "OK", message: "Map ready", statusCode: 200 }, key);
    if (state.config.show && state.config.show.booking) {
      ORVSDK_initAllBookingLayerBy({});
    }
  }).catch((error) => {
    if (error instanceof AuthError) {
      state.initPending = true;
      return;
    }
    state.initPending = false;
    post("error", { status: "ERROR", message: error.message, statusCode: 500 }, key);
  });
}

// ---- Floors, positions and records the host decodes --------------------------------------

function floors() {
  return state.building ? state.building.floors : [];
}

function currentFloor() {
  return floors()[state.floorIndex] || null;
}

function floorModel(floor) {
  return floor && { id: floor.id, mapId: floor.mapId, level: floor.level, name: floor.name, width: floor.width, depth: floor.depth };
}

function floorById(mapId) {
  return floors().find((f) => f.mapId === Number(mapId)) || null;
}

function positionModel(mapId, x, y, extra) {
  const floor = floorById(mapId);
  const room = VeloraDrawing.roomAt(floor, x, y);
  const model = { mapId, x, y };
  if (state.tag) {
    model.tagid = state.tag.tagid;
  }
  if (room) {
    model.roomId = room.id;
    model.areaId = room.areaId;
  }
  if (floor) {
    model.level = floor.level;
  }
  return Object.assign(model, extra);
}

function showFloor(index) {
  if (index < 0 || index >= floors().length) {
    return false;
  }
  if (index !== state.floorIndex) {
    state.floorIndex = index;
    drawing.setView({ focus: null });
    post("floorChange", floorModel(currentFloor()));
  }
  redraw();
  return true;
}

function showFloorOf(mapId) {
  return showFloor(floors().findIndex((f) => f.mapId === Number(mapId)));
}

function redraw() {
  const floor = currentFloor();
  document.body.classList.toggle("dark", Boolean(state.style.darkMode));
  document.getElementById("floor-name").textContent = floor ? floor.name : "";
  drawing.render({
    floor,
    style: state.style,
    roomsHidden: state.roomsHidden,
    resources: state.resources,
    items: state.items,
    bookingStatus: state.bookingStatus,
    selectedRoomId: state.selectedRoomId,
    selectedResourceId: state.selectedResourceId,
    highlighted: state.highlighted,
    pins: state.pins,
    routeLegs: state.navigation && state.navigation.legs,
    marker: state.markerActive ? state.marker : null,
    markerHeading: state.markerHeading,
    backgrounds: state.config && state.config.noImage ? {} : state.backgrounds,
  });
}

// ---- Clicks ------------------------------------------------------------------------------

function numericId(id) {
  return /^\d+$/.test(String(id)) ? Number(id) : String(id);
}

function handleMapClick({ floor, x, y, room, resource }) {
  post("mapClick", positionModel(floor.mapId, x, y, resource ? { data: resource.id } : {}));
  if (room) {
    state.selectedRoomId = room.id;
    if (state.config && state.config.visualization && state.config.visualization.centerAreaOnClick) {
      drawing.setView({ focus: { x: room.x + room.width / 2, y: room.y + room.depth / 2 } });
    }
  }
  if (resource) {
    state.selectedResourceId = resource.id;
    post("resourceClick", { id: numericId(resource.id) });
    const status = state.bookingStatus.get(resource.id);
    if (status) {
      post("bookingResource", bookingClick(resource, status));
    }
  }
  redraw();
}

function bookingClick(resource, status) {
  const { x, y, mapId } = resource.position;
  const colour = status === "BOOKABLE" ? state.style.bookingLayer.color : undefined;
  const response = {
    id: Number(resource.id),
    name: resource.name,
    x,
    y,
    info: {
      booking: {
        resId: Number(resource.id),
        name: resource.name,
        editable: status === "BOOKABLE" || status === "BOOKED_BY_ME",
        type: resource.type,
      },
      reservation: [{
        index: 0,
        date: bookingDate(),
        availableQuantity: status === "BOOKABLE" ? 1 : 0,
        bookableStatus: status,
      }],
      position: positionModel(mapId, x, y, { data: resource.id }),
    },
  };
  if (colour) {
    response.color = colour;
  }
  return response;
}

// ---- Booking layer -----------------------------------------------------------------------

function today() {
  const now = new Date();
  const pad = (n) => String(n).padStart(2, "0");
  return `${now.getFullYear()}-${pad(now.getMonth() + 1)}-${pad(now.getDate())}`;
}

function bookingDate() {
  return state.bookingDate || today();
}

function addDays(day, count) {
  const date = new Date(`${day}T12:00:00Z`);
  date.setUTCDate(date.getUTCDate() + count);
  return date.toISOString().slice(0, 10);
}

// The resource types that a search type asks for; no types: every resource.
const SEARCHED_TYPES = { DESK: ["DESK"], MEETING: ["ROOM"], PARK: ["PARK", "EPARK"] };

async function loadBookingLayer() {
  const layer = state.bookingLayer;
  const filter = layer.filter;
  const date = bookingDate();
  const query = { date };
  for (const key of ["start", "end", "types", "mapId"]) {
    if (filter[key] !== undefined && filter[key] !== null) {
      query[key] = filter[key];
    }
  }
  const [free, mine] = await Promise.all([
    api("POST", "/api/v2/search", query),
    api("GET", `/api/v2/agenda/next/my?dateStart=${date}&dateEnd=${date}`),
  ]);
  if (state.bookingLayer !== layer) {
    return;
  }
  const freeIds = new Set(free.map((r) => String(r.id)));
  const mineIds = new Set(mine.filter((e) => e.resource).map((e) => String(e.resource.id)));
  const wanted = (filter.types || []).flatMap((t) => SEARCHED_TYPES[t] || []);
  state.bookingStatus = new Map();
  for (const resource of state.resources) {
    if (wanted.length > 0 && !wanted.includes(resource.type)) {
      continue;
    }
    const status = mineIds.has(resource.id) ? "BOOKED_BY_ME" : freeIds.has(resource.id) ? "BOOKABLE" : "NOT_AVAILABLE";
    state.bookingStatus.set(resource.id, status);
  }
  const dates = Array.from({ length: BOOKING_DAYS }, (_, i) => addDays(state.bookingStartDate || date, i));
  post(wanted.length > 0 && wanted.every((t) => t === "PARK" || t === "EPARK") ? "parkConf" : "deskConf", { availableDateList: dates });
  redraw();
}

function reloadBookingLayer() {
  if (state.bookingLayer && state.building) {
    loadBookingLayer().catch((error) => console.log("booking layer", error.message));
  }
}

// ---- Navigation --------------------------------------------------------------------------

function velocities() {
  const options = state.style.navigation.velocityOptions;
  return options && Object.keys(options).length > 0 ? options : { walk: WALKING_SPEED };
}

function navigationStats(remaining) {
  const nav = state.navigation;
  const walkedBefore = nav.total - remaining;
  return {
    totalDistance: nav.total,
    remainingDistance: remaining,
    vehicles: Object.entries(velocities()).map(([name, speed]) => ({
      name,
      totalTimeSecond: nav.total / speed,
      remainingTimeSecond: remaining / speed,
    })),
    nextSteps: nav.steps
      .filter((s) => s.remainingDistance >= walkedBefore)
      .map((s) => ({ type: s.type, value: s.value, remainingDistance: s.remainingDistance - walkedBefore })),
  };
}

function startNavigation(from, to, mode, fromMe) {
  const legs = VeloraDrawing.route(floors(), from, to);
  if (!legs) {
    return "unknown floor";
  }
  const floorName = (mapId) => (floorById(mapId) || { name: String(mapId) }).name;
  state.navigation = {
    legs,
    total: VeloraDrawing.routeLength(legs),
    steps: VeloraDrawing.steps(legs, floorName),
    destination: to,
    fromMe,
    mode,
    near: false,
  };
  showFloorOf(from.mapId);
  post("navStats", navigationStats(state.navigation.total));
  const target = floorById(to.mapId);
  post("navInfo", {
    type: "start",
    mapName: target.name,
    message: `Route of ${Math.round(state.navigation.total)} m to ${target.name}`,
    position: positionModel(to.mapId, to.x, to.y),
  });
  redraw();
  return "ok";
}

// While navigating from the marker, each new position updates what is left of the route.
function followNavigation() {
  const nav = state.navigation;
  if (!nav || !nav.fromMe || !nav.mode || !state.marker) {
    return;
  }
  const sameFloor = state.marker.mapId === nav.destination.mapId;
  const remaining = sameFloor ? Math.min(nav.total, VeloraDrawing.distance(state.marker, nav.destination)) : nav.total;
  post("navStats", navigationStats(remaining));
  if (sameFloor && remaining <= NEAR_DESTINATION_METERS && !nav.near) {
    nav.near = true;
    post("nearDestination", { status: "NEAR", message: "Near the destination", statusCode: 200 });
  }
}

// ---- Position marker ---------------------------------------------------------------------

function placeMarker(mapId, x, y) {
  const floor = floorById(mapId);
  if (!floor) {
    return "unknown floor";
  }
  const before = state.marker;
  const room = VeloraDrawing.roomAt(floor, x, y);
  state.marker = { mapId: floor.mapId, x, y, roomId: room ? room.id : null, areaId: room ? room.areaId : null };
  const beforeRoom = before ? `${before.mapId}/${before.roomId}` : null;
  const afterRoom = `${floor.mapId}/${state.marker.roomId}`;
  if (before && before.roomId !== null && beforeRoom !== afterRoom) {
    post("roomExit", positionModel(before.mapId, before.x, before.y));
  }
  if (room && beforeRoom !== afterRoom) {
    post("roomEnter", positionModel(floor.mapId, x, y));
  }
  if (state.followMe || (state.tag && state.tag.follow)) {
    showFloorOf(floor.mapId);
    drawing.setView({ focus: { x, y } });
  }
  followNavigation();
  redraw();
  return "ok";
}

// A position in plan metres ({mapId, x, y}) or in degrees ({latitude, longitude}, on the
// current floor unless it names a mapId or a level).
function planPosition(position) {
  if (!position || !state.building) {
    return null;
  }
  let floor = position.mapId !== undefined ? floorById(position.mapId) : null;
  if (!floor && position.level !== undefined) {
    floor = floors().find((f) => f.level === Number(position.level)) || null;
  }
  floor = floor || currentFloor();
  if (typeof position.x === "number" && typeof position.y === "number") {
    return { mapId: floor.mapId, x: position.x, y: position.y };
  }
  if (typeof position.latitude === "number" && typeof position.longitude === "number") {
    const origin = state.building.origin;
    const east = (position.longitude - origin.longitude) * METERS_PER_DEGREE * Math.cos((origin.latitude * Math.PI) / 180);
    const south = (origin.latitude - position.latitude) * METERS_PER_DEGREE;
    return { mapId: floor.mapId, x: east, y: south };
  }
  return null;
}

// ---- Helpers for commands ----------------------------------------------------------------

// A quoted argument that the host had no value for.
function given(text) {
  return typeof text === "string" && text !== "" && text !== "nil" && text !== "null" ? text : null;
}

function findPoi(id) {
  const key = String(id);
  return state.resources.find((r) => r.id === key) || state.items.find((i) => String(i.id) === key) || null;
}

function selectPoi(poi, changeFloor) {
  if (!poi || !poi.position) {
    return "not found";
  }
  if (changeFloor) {
    showFloorOf(poi.position.mapId);
  }
  state.selectedResourceId = String(poi.id);
  state.selectedRoomId = poi.position.roomId ?? null;
  drawing.setView({ focus: { x: poi.position.x, y: poi.position.y } });
  redraw();
  return "ok";
}

function rotateTo(degrees, animationMs) {
  drawing.setView({ rotation: ((degrees % 360) + 360) % 360, animationMs: animationMs || 0 });
}

function setupToolbox() {
  const toolbox = state.config.toolbox || {};
  const step = (toolbox.mapControl && toolbox.mapControl.rotationStep) || 10;
  VeloraDrawing.toolbox(document.getElementById("toolbox"), [
    {
      params: toolbox.mapControl,
      actions: [
        { label: "+", title: "Zoom in", run: () => drawing.setView({ zoom: drawing.view.zoom * 1.25 }) },
        { label: "\u2212", title: "Zoom out", run: () => drawing.setView({ zoom: drawing.view.zoom / 1.25 }) },
        { label: "\u21ba", title: "Rotate left", run: () => ORVSDK_action_rotate(-step) },
        { label: "\u21bb", title: "Rotate right", run: () => ORVSDK_action_rotate(step) },
        { label: "\u2302", title: "Reset view", run: () => ORVSDK_actionResetView() },
      ],
    },
    {
      params: toolbox.layer,
      actions: [
        { label: "\u21c5", title: "Next floor", run: () => ORVSDK_nextFloor() },
        { label: "\u25a6", title: "Rooms", run: () => ORVSDK_action_hide_room_layer(!state.roomsHidden) },
      ],
    },
  ]);
}

function mergeStyle(style) {
  const merged = structuredClone(DEFAULT_STYLE);
  for (const block of Object.keys(merged)) {
    if (style && style[block] !== undefined) {
      merged[block] = typeof merged[block] === "object" ? { ...merged[block], ...style[block] } : style[block];
    }
  }
  return merged;
}

// ---- The page functions the host calls ---------------------------------------------------

function ORVSDK_init(config) {
  state.config = config || {};
  state.token = (state.config.auth && state.config.auth.token) || null;
  state.style = mergeStyle(state.config.style);
  state.roomsHidden = state.config.show ? state.config.show.room === false : false;
  state.markerActive = state.config.show ? state.config.show.me !== false : true;
  state.tag = state.config.tagid ? { tagid: state.config.tagid, follow: false } : null;
  state.keyCount += 1;
  state.initKey = `init-${state.keyCount}-${Math.random().toString(36).slice(2, 10)}`;
  setupToolbox();
  completeInit();
  return state.initKey;
}

function ORVSDK_initAuth(credentials) {
  state.token = (credentials && credentials.token) || null;
  if (state.initPending) {
    completeInit();
  } else {
    reloadBookingLayer();
  }
  return "ok";
}

function ORVSDK_initAllBookingLayerBy(filter) {
  if (filter && filter.date) {
    state.bookingDate = filter.date;
  }
  state.bookingLayer = { filter: filter || {} };
  reloadBookingLayer();
  return "ok";
}

function ORVSDK_setDarkMode(dark) {
  state.style.darkMode = Boolean(dark);
  redraw();
  return "ok";
}

function ORVSDK_getStyle() {
  return structuredClone(state.style);
}

function ORVSDK_setStyle(style) {
  state.style = mergeStyle(style);
  redraw();
  return "ok";
}

function ORVSDK_setStartBookingDate(date) {
  state.bookingStartDate = date;
  reloadBookingLayer();
  return "ok";
}

function ORVSDK_setBookingDate(date) {
  state.bookingDate = date;
  reloadBookingLayer();
  return "ok";
}

function ORVSDK_actionResetView() {
  drawing.setView({ rotation: 0, zoom: 1, focus: null, animationMs: 0 });
  return "ok";
}

function ORVSDK_action_rotate(degrees) {
  rotateTo(drawing.view.rotation + Number(degrees), state.style.navigation.animationTime * 1000);
  return String(drawing.view.rotation);
}

function ORVSDK_action_rotate_absolute(degrees) {
  rotateTo(Number(degrees), state.style.navigation.animationTime * 1000);
  return String(drawing.view.rotation);
}

function ORVSDK_action_hide_room_layer(hide) {
  state.roomsHidden = Boolean(hide);
  redraw();
  return "ok";
}

function ORVSDK_nextFloor() {
  if (floors().length === 0) {
    return "no floors";
  }
  showFloor((state.floorIndex + 1) % floors().length);
  return String(currentFloor().mapId);
}

function ORVSDK_showTag(tagid, follow) {
  state.tag = { tagid, follow: Boolean(follow) };
  post("tagVisibility", { tagid, visible: Boolean(state.marker && state.markerActive) });
  return "ok";
}

function ORVSDK_getFloor() {
  return currentFloor() ? [floorModel(currentFloor())] : [];
}

function ORVSDK_getFloors() {
  return floors().map(floorModel);
}

function ORVSDK_getFloorsWithJump() {
  return state.navigation && state.navigation.legs.length > 1 ? state.navigation.legs.map((leg) => floorModel(floorById(leg.mapId))) : [];
}

function ORVSDK_getCurrentFloor() {
  return floorModel(currentFloor());
}

function ORVSDK_gotoFloorById(mapId) {
  return showFloorOf(mapId) ? "ok" : "unknown floor";
}

function ORVSDK_gotoFloor(floor) {
  if (!floor) {
    return "unknown floor";
  }
  if (floor.mapId !== undefined || floor.id !== undefined) {
    return ORVSDK_gotoFloorById(floor.mapId ?? floor.id);
  }
  return showFloor(floors().findIndex((f) => f.level === floor.level)) ? "ok" : "unknown floor";
}

function ORVSDK_gotoFromMe(destination, navigationMode) {
  if (!state.marker) {
    return "no position";
  }
  const to = planPosition(destination);
  return to ? startNavigation(state.marker, to, Boolean(navigationMode), true) : "invalid destination";
}

function ORVSDK_goto(source, destination, navigationMode) {
  const from = planPosition(source);
  const to = planPosition(destination);
  return from && to ? startNavigation(from, to, Boolean(navigationMode), false) : "invalid position";
}

function ORVSDK_removeNavigation() {
  state.navigation = null;
  redraw();
  return "ok";
}

function ORVSDK_loadGenericResource(search, type, subtype) {
  const filter = {};
  const text = given(search);
  const wantedType = given(type);
  const wantedSubtype = given(subtype);
  const data = [...state.resources, ...state.items].filter((entry) =>
    (!text || entry.name.toLowerCase().includes(text.toLowerCase())) &&
    (!wantedType || entry.type === wantedType) &&
    (!wantedSubtype || entry.subtype === wantedSubtype));
  if (text) filter.search = text;
  if (wantedType) filter.type = wantedType;
  if (wantedSubtype) filter.subtype = wantedSubtype;
  post("resource", { filter, data });
  return String(data.length);
}

function ORVSDK_selectPoi(poi, changeFloor) {
  const known = poi && poi.id !== undefined ? findPoi(poi.id) : null;
  return selectPoi(known || poi, changeFloor);
}

function ORVSDK_selectPoiById(id, changeFloor) {
  return selectPoi(findPoi(id), changeFloor);
}

function ORVSDK_drawPin(position, icon) {
  const place = planPosition(position);
  if (!place) {
    return "invalid position";
  }
  state.pins.push({ ...place, icon: given(icon) });
  redraw();
  return "ok";
}

function ORVSDK_centerToPosition(position, zoom) {
  const place = planPosition(position);
  if (!place) {
    return "invalid position";
  }
  showFloorOf(place.mapId);
  drawing.setView({ focus: { x: place.x, y: place.y }, zoom: Number(zoom) > 0 ? Number(zoom) : drawing.view.zoom });
  return "ok";
}

function ORVSDK_centerToRoom(roomId) {
  for (const floor of floors()) {
    const room = floor.rooms.find((r) => r.id === Number(roomId));
    if (room) {
      state.selectedRoomId = room.id;
      showFloorOf(floor.mapId);
      drawing.setView({ focus: { x: room.x + room.width / 2, y: room.y + room.depth / 2 } });
      return "ok";
    }
  }
  return "unknown room";
}

function ORVSDK_actionClearSelection() {
  state.selectedRoomId = null;
  state.selectedResourceId = null;
  state.highlighted = new Set();
  redraw();
  return "ok";
}

function ORVSDK_showResourceOnMap(resources, autoFloor) {
  const list = Array.isArray(resources) ? resources : [];
  state.highlighted = new Set(list.map((r) => String(r.id)));
  const placedOne = list.find((r) => r.position && floorById(r.position.mapId));
  if (autoFloor && placedOne) {
    showFloorOf(placedOne.position.mapId);
  }
  redraw();
  return String(state.highlighted.size);
}

function ORVSDK_receiveGps(position) {
  const place = planPosition(position);
  return place ? placeMarker(place.mapId, place.x, place.y) : "invalid position";
}

function ORVSDK_resetCompass(resetRotation) {
  state.compass = { heading: 0, enabled: false };
  state.markerHeading = 0;
  if (resetRotation) {
    rotateTo(0, 0);
  }
  redraw();
  return "ok";
}

// With the compass on, the map turns so that the heading points up.
function ORVSDK_setCompass(heading, enabled, animationMs) {
  state.compass = { heading: Number(heading), enabled: Boolean(enabled) };
  state.markerHeading = Number(heading);
  if (enabled) {
    rotateTo(-Number(heading), Number(animationMs));
  }
  redraw();
  return "ok";
}

function ORVSDK_forceFollowMe(follow) {
  const changed = state.followMe !== Boolean(follow);
  state.followMe = Boolean(follow);
  if (changed) {
    post("forceFollowUserChanged", state.followMe);
  }
  if (state.followMe && state.marker) {
    showFloorOf(state.marker.mapId);
    drawing.setView({ focus: { x: state.marker.x, y: state.marker.y } });
  }
  return "ok";
}

function ORVSDK_activatePositionMarker(active) {
  state.markerActive = Boolean(active);
  redraw();
  return "ok";
}

function ORVSDK_clearPositionMarker() {
  state.marker = null;
  redraw();
  return "ok";
}

function ORVSDK_getPositionMarker() {
  return state.marker ? positionModel(state.marker.mapId, state.marker.x, state.marker.y) : null;
}

function ORVSDK_resetPath() {
  return ORVSDK_removeNavigation();
}

function ORVSDK_resetDataAndTag() {
  state.tag = null;
  state.marker = null;
  state.pins = [];
  state.highlighted = new Set();
  state.selectedRoomId = null;
  state.selectedResourceId = null;
  redraw();
  return "ok";
}

function ORVSDK_resetPathAndData() {
  state.navigation = null;
  return ORVSDK_resetDataAndTag();
}

function ORVSDK_resetAll() {
  state.bookingLayer = null;
  state.bookingStatus = new Map();
  state.followMe = false;
  state.compass = { heading: 0, enabled: false };
  state.markerHeading = 0;
  ORVSDK_actionResetView();
  return ORVSDK_resetPathAndData();
}

function ORVSDK_setTag(tagid, follow) {
  state.tag = { tagid, follow: Boolean(follow) };
  post("followUserTag", { tagid, follow: Boolean(follow) });
  return "ok";
}

function ORVSDK_getCurrentMapRotationDeg() {
  return drawing.view.rotation;
}

// A background belongs to the floor whose map id is the number in its file name ("2.png",
// "map-2.jpg").
function ORVSDK_setMapsBackground(backgrounds) {
  const types = { png: "image/png", jpg: "image/jpeg", jpeg: "image/jpeg", svg: "image/svg+xml", webp: "image/webp" };
  let applied = 0;
  for (const { filename, base64 } of Array.isArray(backgrounds) ? backgrounds : []) {
    const number = /(\d+)/.exec(filename || "");
    const extension = (filename || "").split(".").pop().toLowerCase();
    if (number && floorById(number[1]) && types[extension] && base64) {
      state.backgrounds[Number(number[1])] = `data:${types[extension]};base64,${base64}`;
      applied += 1;
    }
  }
  redraw();
  return String(applied);
}

// ---- The older page functions ------------------------------------------------------------

function iosUnselectRooms() {
  state.selectedRoomId = null;
  redraw();
}

function iosSelectRoom(roomId) {
  ORVSDK_centerToRoom(roomId);
}

function iosRotatePin(degrees) {
  state.markerHeading = Number(degrees);
  redraw();
}

function iosLatLngReceive(position) {
  ORVSDK_receiveGps(position);
}
