import numpy as np
import matplotlib.pyplot as plt

theta = []
mobs  = []

with open("mob_plane_yz.dat", "r") as f:
    lines = f.readlines()
    for line in lines:
        vars = line.split()
        theta.append(float(vars[0]) / 180.0 * np.pi)
        mobs.append(float(vars[1]))

plt.figure(figsize=(8,6))

plt.xlabel("μ / cm^2/Vs")
plt.ylabel("μ / cm^2/Vs")

plt.rcParams["font.size"] = "12"
plt.axes(polar = True)
plt.plot(theta, mobs, lw=3, c='r')

plt.show()

