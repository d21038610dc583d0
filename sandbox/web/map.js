// Draws the demo building as SVG: one floor at a time, its rooms, resources and equipment, the
// booking layer's colours, a selection, pins, the route and the position marker. Knows nothing
// of the host; bridge.js decides what is drawn and hears about clicks.
"use strict";

const VeloraDrawing = (() => {
  const SVG = "http://www.w3.org/2000/svg";
  // Room rectangles are side by side along x; the route runs along the middle of the floor and
  // changes floor at a lift near x 0.
  const LIFT_X = 1;

  function element(name, attributes, parent) {
    const node = document.createElementNS(SVG, name);
    for (const [key, value] of Object.entries(attributes)) {
      node.setAttribute(key, String(value));
    }
    if (parent) {
      parent.appendChild(node);
    }
    return node;
  }

  function distance(a, b) {
    return Math.hypot(b.x - a.x, b.y - a.y);
  }

  function roomAt(floor, x, y) {
    if (!floor || y < 0 || y > floor.depth) {
      return null;
    }
    return floor.rooms.find((room) => x >= room.x && x <= room.x + room.width) || null;
  }

  // The route from `from` to `to` ({mapId, x, y}) as one list of points per floor, in order.
  function route(floors, from, to) {
    const floorOf = (mapId) => floors.find((f) => f.mapId === mapId);
    const legOn = (floor, a, b) => {
      const corridor = floor.depth / 2;
      return [a, { x: a.x, y: corridor }, { x: b.x, y: corridor }, b];
    };
    const start = floorOf(from.mapId);
    const end = floorOf(to.mapId);
    if (!start || !end) {
      return null;
    }
    if (start === end) {
      return [{ mapId: start.mapId, points: legOn(start, from, to) }];
    }
    return [
      { mapId: start.mapId, points: legOn(start, from, { x: LIFT_X, y: start.depth / 2 }) },
      { mapId: end.mapId, points: legOn(end, { x: LIFT_X, y: end.depth / 2 }, to) },
    ];
  }

  function routeLength(legs) {
    let total = 0;
    for (const leg of legs) {
      for (let i = 1; i < leg.points.length; i += 1) {
        total += distance(leg.points[i - 1], leg.points[i]);
      }
    }
    return total;
  }

  // The turns, floor changes and arrival of a route, each with the distance walked before it.
  function steps(legs, floorName) {
    const out = [];
    let walked = 0;
    legs.forEach((leg, legIndex) => {
      const p = leg.points;
      for (let i = 1; i < p.length; i += 1) {
        walked += distance(p[i - 1], p[i]);
        if (i + 1 < p.length) {
          const cross = (p[i].x - p[i - 1].x) * (p[i + 1].y - p[i].y) - (p[i].y - p[i - 1].y) * (p[i + 1].x - p[i].x);
          if (Math.abs(cross) > 1e-9) {
            // y grows downwards on the plan, so a positive cross product is a right turn.
            out.push({ type: cross > 0 ? "right" : "left", remainingDistance: walked });
          }
        }
      }
      if (legIndex + 1 < legs.length) {
        out.push({ type: "lift", value: floorName(legs[legIndex + 1].mapId), remainingDistance: walked });
      }
    });
    out.push({ type: "destination", remainingDistance: walked });
    return out;
  }

  class Drawing {
    constructor(svg, onClick) {
      this.svg = svg;
      this.onClick = onClick;
      this.view = { rotation: 0, zoom: 1, focus: null, animationMs: 0 };
      svg.addEventListener("click", (event) => this.handleClick(event));
    }

    // `scene`: {floor, style, roomsHidden, dark, resources, items, bookingStatus (id -> status),
    // selectedRoomId, selectedResourceId, highlighted (Set of ids), pins, routeLegs, marker,
    // markerHeading, backgrounds (mapId -> data URL)}.
    render(scene) {
      this.scene = scene;
      const floor = scene.floor;
      const svg = this.svg;
      svg.replaceChildren();
      if (!floor) {
        return;
      }
      const margin = 2;
      svg.setAttribute("viewBox", `${-margin} ${-margin} ${floor.width + 2 * margin} ${floor.depth + 2 * margin}`);
      this.plan = element("g", { id: "plan", class: scene.roomsHidden ? "rooms-hidden" : "" }, svg);
      this.applyView();
      const background = scene.backgrounds[floor.mapId];
      if (background) {
        element("image", { href: background, x: 0, y: 0, width: floor.width, height: floor.depth, preserveAspectRatio: "none" }, this.plan);
      }
      for (const room of floor.rooms) {
        const rect = element("rect", { x: room.x, y: room.y, width: room.width, height: room.depth, class: "room", "data-room": room.id }, this.plan);
        if (room.id === scene.selectedRoomId) {
          rect.classList.add("selected");
        }
        if (background) {
          rect.setAttribute("fill-opacity", "0.4");
        }
        const label = element("text", { x: room.x + room.width / 2, y: room.y + 1.8, class: "room-label" }, this.plan);
        label.textContent = room.name;
      }
      for (const item of scene.items.filter((i) => i.position.mapId === floor.mapId)) {
        element("rect", { x: item.position.x - 0.3, y: item.position.y - 0.3, width: 0.6, height: 0.6, class: "item", transform: `rotate(45 ${item.position.x} ${item.position.y})` }, this.plan);
      }
      this.drawResources(scene, floor);
      this.drawRoute(scene, floor);
      for (const pin of scene.pins.filter((p) => p.mapId === floor.mapId)) {
        element("path", { d: `M ${pin.x} ${pin.y} l -0.6 -1.4 a 0.65 0.65 0 1 1 1.2 0 z`, fill: scene.style.indication.sourceColor }, this.plan);
        if (pin.icon) {
          element("text", { x: pin.x, y: pin.y - 2, class: "pin-label" }, this.plan).textContent = pin.icon;
        }
      }
      this.drawMarker(scene, floor);
    }

    drawResources(scene, floor) {
      const colours = bookingColours(scene.style);
      const radius = scene.style.bookingLayer.radiusMeter ? scene.style.bookingLayer.radiusMeter / 2 : 0.7;
      for (const resource of scene.resources.filter((r) => r.position.mapId === floor.mapId)) {
        const { x, y } = resource.position;
        const attributes = { class: "resource", "data-resource": resource.id };
        const shape = resource.type === "LOCKER"
          ? element("rect", { ...attributes, x: x - radius * 0.7, y: y - radius * 0.7, width: radius * 1.4, height: radius * 1.4 }, this.plan)
          : element("circle", { ...attributes, cx: x, cy: y, r: radius }, this.plan);
        const status = scene.bookingStatus.get(resource.id);
        if (status && colours[status]) {
          shape.style.fill = colours[status];
        }
        if (scene.highlighted.has(resource.id)) {
          shape.classList.add("highlighted");
        }
        if (resource.id === scene.selectedResourceId) {
          shape.classList.add("selected");
        }
        element("title", {}, shape).textContent = resource.name;
      }
    }

    drawRoute(scene, floor) {
      const nav = scene.style.navigation;
      for (const leg of (scene.routeLegs || []).filter((l) => l.mapId === floor.mapId)) {
        element("polyline", {
          points: leg.points.map((p) => `${p.x},${p.y}`).join(" "),
          fill: "none",
          stroke: nav.stroke || "#4965E7",
          "stroke-opacity": nav.strokeOpacity ?? 1,
          "stroke-width": nav.strokeWidthMeter,
          "stroke-linecap": nav.strokeLinecap,
          "stroke-linejoin": nav.strokeLinejoin,
          "pointer-events": "none",
        }, this.plan);
      }
      const legs = scene.routeLegs || [];
      legs.forEach((leg, index) => {
        if (leg.mapId !== floor.mapId) {
          return;
        }
        // A floor change: the end of every leg but the last, the start of every leg but the first.
        const jumps = [];
        if (index > 0) {
          jumps.push(leg.points[0]);
        }
        if (index + 1 < legs.length) {
          jumps.push(leg.points[leg.points.length - 1]);
        }
        for (const p of jumps) {
          element("circle", { cx: p.x, cy: p.y, r: nav.jumpRadiusMeter, fill: nav.jumpColor, "fill-opacity": nav.jumpOpacity ?? 1 }, this.plan);
        }
      });
    }

    drawMarker(scene, floor) {
      const marker = scene.marker;
      if (!marker || marker.mapId !== floor.mapId) {
        return;
      }
      const icons = scene.style.icons;
      const group = element("g", { transform: `translate(${marker.x} ${marker.y})`, opacity: icons.opacity ?? 1, "pointer-events": "none" }, this.plan);
      element("circle", { r: icons.radiusMeter ?? 5, fill: "#4965E7", "fill-opacity": 0.12 }, group);
      element("path", { d: "M 0 -1.3 L 0.6 0.2 L -0.6 0.2 Z", fill: "#4965E7", transform: `rotate(${scene.markerHeading})` }, group);
      element("circle", { r: 0.55, fill: "#4965E7", stroke: "#fff", "stroke-width": 0.15 }, group);
    }

    // The plan turns and zooms about the focus point, which sits in the middle of the view.
    applyView() {
      if (!this.plan || !this.scene || !this.scene.floor) {
        return;
      }
      const floor = this.scene.floor;
      const focus = this.view.focus || { x: floor.width / 2, y: floor.depth / 2 };
      this.plan.style.transitionDuration = `${this.view.animationMs}ms`;
      this.plan.setAttribute("transform",
        `translate(${floor.width / 2} ${floor.depth / 2}) rotate(${this.view.rotation}) scale(${this.view.zoom}) translate(${-focus.x} ${-focus.y})`);
    }

    setView(changes) {
      Object.assign(this.view, changes);
      this.applyView();
    }

    // A click anywhere on the plan, in plan metres, with the room and resource under it.
    handleClick(event) {
      if (!this.plan || !this.scene.floor) {
        return;
      }
      const matrix = this.plan.getScreenCTM();
      if (!matrix) {
        return;
      }
      const point = new DOMPoint(event.clientX, event.clientY).matrixTransform(matrix.inverse());
      const resourceNode = event.target.closest("[data-resource]");
      const resource = resourceNode ? this.scene.resources.find((r) => r.id === resourceNode.getAttribute("data-resource")) : null;
      this.onClick({
        floor: this.scene.floor,
        x: point.x,
        y: point.y,
        room: roomAt(this.scene.floor, point.x, point.y),
        resource,
      });
    }
  }

  function bookingColours(style) {
    return {
      BOOKABLE: style.bookingLayer.color || "#2e9d5b",
      BOOKED_BY_ME: style.navigation.stroke || "#4965E7",
      NOT_AVAILABLE: "#d64545",
    };
  }

  // On-map buttons as the configuration's toolbox groups place them; `actions` in button order.
  function toolbox(container, groups) {
    container.replaceChildren();
    for (const { params, actions } of groups) {
      if (!params || !params.enabled) {
        continue;
      }
      actions.forEach(({ label, title, run }, index) => {
        const button = document.createElement("button");
        const offset = index * ((params.orientation === "vertical" ? params.buttonHeight : params.buttonWidth) + params.buttonSpace);
        button.textContent = label;
        button.title = title;
        button.style.left = `${params.x + (params.orientation === "vertical" ? 0 : offset)}px`;
        button.style.top = `${params.y + (params.orientation === "vertical" ? offset : 0)}px`;
        button.style.width = `${params.buttonWidth}px`;
        button.style.height = `${params.buttonHeight}px`;
        button.addEventListener("click", run);
        container.appendChild(button);
      });
    }
  }

  return { Drawing, roomAt, route, routeLength, steps, distance, toolbox };
})();
